#pragma once

#include <cstddef>
#include <new>
#include <utility>

#include "base/log.h"

namespace zv_loc_fw {

/// A minimal singly linked list: a head and a count, newest node first. It owns its nodes, never what their values
/// point to. Not thread-safe: its owner guards it.
template <typename T>
class List {
public:
    struct Node {
        Node* next;
        T value;
    };

    List() = default;
    ~List() { clear(); }
    List(const List&) = delete;
    List& operator=(const List&) = delete;

    [[nodiscard]] size_t count() const { return mCount; }
    [[nodiscard]] bool empty() const { return mHead == nullptr; }
    [[nodiscard]] Node* head() const { return mHead; }

    /// Adds a node at the head. Without memory the process ends.
    void push(T value) {
        mHead = new Node{mHead, std::move(value)};
        ++mCount;
    }

    /// The same for callers that survive without memory. @return whether the node was added
    [[nodiscard]] bool tryPush(T value) {
        Node* node = new (std::nothrow) Node{mHead, std::move(value)};
        if (node == nullptr) {
            return false;
        }
        mHead = node;
        ++mCount;
        return true;
    }

    /// Removes one node, given as found while walking.
    /// @return the node that followed it, so that a walk can go on; a node that is not in the list changes nothing, is
    ///         logged as "erase: failed %d" 1 under "List", and ends the walk
    Node* erase(Node* node) {
        for (Node** link = &mHead; *link != nullptr; link = &(*link)->next) {
            if (*link == node) {
                *link = node->next;
                Node* next = node->next;
                delete node;
                --mCount;
                return next;
            }
        }
        log_error("List", "erase: failed %d", 1);
        return nullptr;
    }

    /// Frees every node and leaves the list empty.
    void clear() {
        while (mHead != nullptr) {
            Node* node = mHead;
            mHead = node->next;
            delete node;
        }
        mCount = 0;
    }

protected:
    Node* mHead = nullptr;
    size_t mCount = 0;
};

/// First in, first out: pushed at the head, popped at the tail, which is found by walking (simple on purpose). One node
/// that was popped is kept for the next push, so that a queue that is emptied as it is filled leaves the heap alone.
template <typename T>
class Queue : public List<T> {
public:
    using Node = typename List<T>::Node;

    Queue() = default;
    ~Queue() { delete mSpare; }
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;

    /// Adds a node at the head. Without memory the process ends.
    void push(T value) {
        if (mSpare == nullptr) {
            List<T>::push(std::move(value));
            return;
        }
        Node* node = std::exchange(mSpare, nullptr);
        node->next = this->mHead;
        node->value = std::move(value);
        this->mHead = node;
        ++this->mCount;
    }

    /// Removes the oldest value.
    /// @return 0; 2 empty; 3 count and list disagree: logged as "pop: failed %d" under "Queue", the count is reset
    [[nodiscard]] int pop(T* value) {
        if (this->mCount == 0) {
            return 2;
        }
        if (this->mHead == nullptr) {
            log_error_no_lock("Queue", "pop: failed %d", 3);  // perhaps under a queue's own lock
            this->mCount = 0;
            return 3;
        }
        Node* before = nullptr;
        Node* last = this->mHead;
        while (last->next != nullptr) {
            before = last;
            last = last->next;
        }
        *value = std::move(last->value);
        (before != nullptr ? before->next : this->mHead) = nullptr;
        --this->mCount;
        delete std::exchange(mSpare, last);
        return 0;
    }

private:
    Node* mSpare = nullptr;
};

}  // namespace zv_loc_fw
