// A list whose links stand in the items themselves, for the registries of live objects.
//
// Adding cannot fail for want of memory, and a handle that came from outside can be looked up
// without touching what it points to. An item has a public member `T* nextInList`, null at first,
// and stands in at most one list. The list owns nothing; whoever destroys an item removes it first.
// It has no lock of its own and, as a process-wide object, nothing to destroy at exit.
#pragma once

template <class T>
class IntrusiveList {
 public:
  constexpr IntrusiveList() = default;
  IntrusiveList(const IntrusiveList&) = delete;
  IntrusiveList& operator=(const IntrusiveList&) = delete;

  // Adds at the end. An item that is listed already stays where it is.
  void Append(T& item) {
    T** link = &first_;
    while (*link != nullptr) {
      if (*link == &item) {
        return;
      }
      link = &(*link)->nextInList;
    }
    item.nextInList = nullptr;
    *link = &item;
  }

  // Compares addresses only: the argument may be null or point to an object long destroyed.
  bool Contains(const T* item) const {
    for (const T* listed = first_; listed != nullptr; listed = listed->nextInList) {
      if (listed == item) {
        return true;
      }
    }
    return false;
  }

  // Takes the item out; the others keep their order. False, and nothing touched, when it is not
  // listed.
  bool Remove(T* item) {
    for (T** link = &first_; *link != nullptr; link = &(*link)->nextInList) {
      if (*link == item) {
        *link = item->nextInList;
        item->nextInList = nullptr;
        return true;
      }
    }
    return false;
  }

  // Walk in the order of appending: First, then Next until null.
  T* First() const { return first_; }
  static T* Next(const T& item) { return item.nextInList; }

 private:
  T* first_ = nullptr;
};
