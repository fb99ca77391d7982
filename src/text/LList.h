// LList<T>: an owning, intrusive, singly linked list with a head pointer and nothing else. LListIterator<T>: its
// cursor.
//
// The link lives in the element: every element type has a public field `T* pNext` (where in the element is its own
// business), so an element is in one list at a time. Elements are created with new by whoever adds them and are
// destroyed with delete by the list. Neither class locks; a list that several threads reach is guarded by its owner.
//
//     for (LListIterator<Item> it(items); it; it.Next()) use(it->name);                   // newest first
//     for (LListIterator<Item> it(items); it;) old(*it) ? items.Delete(it) : it.Next();   // Delete moves the cursor on
#pragma once

template <class T>
class LListIterator;

template <class T>
class LList {
public:
    LList() = default;
    ~LList() { Clear(); }
    LList(const LList&) = delete;
    LList& operator=(const LList&) = delete;

    // Takes ownership; the element goes to the front. It must not be in a list already.
    void Add(T* element) {
        element->pNext = pHead;
        pHead = element;
    }

    // Takes the element at the cursor out of the list without destroying it; the caller owns it (its pNext is left as
    // it was). The cursor moves on to the successor first, whatever the outcome, so a loop that removes doesn't call
    // Next(). Null when the cursor is at the end or its element is not in this list, which then stays as it is.
    T* Detach(LListIterator<T>& it) {
        T* const element = it.Get();
        if (!element) return nullptr;
        it.Next();
        for (T** link = &pHead; *link; link = &(*link)->pNext) {
            if (*link != element) continue;
            *link = element->pNext;
            return element;
        }
        return nullptr;
    }

    // Detach, then destroys what came back.
    void Delete(LListIterator<T>& it) { delete Detach(it); }

    // Destroys all elements, newest first. Each one is already unlinked when its destructor runs.
    void Clear() {
        while (pHead) {
            T* const element = pHead;
            pHead = element->pNext;
            delete element;
        }
    }

    T* Head() const { return pHead; }  // the newest element; null when empty
    bool IsEmpty() const { return !pHead; }

private:
    T* pHead = nullptr;
};

// A position in a list: an element, or the end. Valid until its element is destroyed. Being const protects a list's
// chain, not its elements (they are reached through pointers), so a walk over a const list yields T* as well.
template <class T>
class LListIterator {
public:
    explicit LListIterator(const LList<T>& list) : pCurrent(list.Head()) {}

    explicit operator bool() const { return pCurrent; }  // false at the end
    T* Get() const { return pCurrent; }
    T* operator->() const { return pCurrent; }
    T& operator*() const { return *pCurrent; }

    void Next() {  // harmless at the end
        if (pCurrent) pCurrent = pCurrent->pNext;
    }

private:
    T* pCurrent;
};
