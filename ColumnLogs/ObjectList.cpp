#include "ObjectList.h"

CObjectList::CObjectList() : m_clList(LIST_ORDER_ASCENDING, LIST_DEFAULT_MAX_CNT, 1) {}

CObjectList::CObjectList(int l_nListOrderType) : m_clList(l_nListOrderType, LIST_DEFAULT_MAX_CNT, 1) {}

CObjectList::CObjectList(int l_nListOrderType, long l_lNodeMaxCnt) : m_clList(l_nListOrderType, l_lNodeMaxCnt, 1) {}

CObjectList::CObjectList(int l_nListOrderType, long l_lNodeMaxCnt, int l_nDupFlag)
    : m_clList(l_nListOrderType, l_lNodeMaxCnt, l_nDupFlag) {}
