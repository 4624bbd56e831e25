// First-in first-out queue shared by producers and the log writer thread.
// Every operation takes `_lock`; a push that makes an empty queue non-empty
// wakes the threads waiting in pop(). The queue holds the items, never owns
// what they point to: the consumer deletes a popped message.
#pragma once

#include <condition_variable>
#include <list>
#include <mutex>

template <typename T>
class Queue {
 public:
  Queue() = default;
  Queue(const Queue&) = delete;
  Queue& operator=(const Queue&) = delete;

  // Appends at the back.
  void push(T const& l_CollectData) {
    bool l_bWasEmpty;
    {
      std::lock_guard<std::mutex> l_clGuard(_lock);
      l_bWasEmpty = _list.empty();
      _list.push_back(l_CollectData);
    }
    if (l_bWasEmpty) _cond.notify_all();
  }

  // Takes the oldest item, waiting while the queue is empty.
  T pop() {
    std::unique_lock<std::mutex> l_clGuard(_lock);
    _cond.wait(l_clGuard, [this] { return !_list.empty(); });
    T l_Item = _list.front();
    _list.pop_front();
    return l_Item;
  }

  // Number of items queued now.
  int getCount() {
    std::lock_guard<std::mutex> l_clGuard(_lock);
    return static_cast<int>(_list.size());
  }

 private:
  std::list<T> _list;             // queued items, oldest first
  std::mutex _lock;               // guards _list
  std::condition_variable _cond;  // signalled when a push fills an empty queue
};
