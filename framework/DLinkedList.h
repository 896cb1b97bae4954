// DLinkedList<T> and DLinkNode<T>: an intrusive, named, doubly linked list. The node lives inside
// the client object (a cached set, for instance) and points back at it, so putting an object on a
// list or taking it off never allocates.
//
// Threads: the list does no locking of its own; its owner guards every walk and change with its own
// mutex. Ownership: the list owns nothing; what holding a place on the list means (a reference, say)
// is the owner's business.
#pragma once

#include <cstddef>

template <class T>
class DLinkedList;

template <class T>
class DLinkNode {
  public:
    explicit DLinkNode(T* client = nullptr) : m_client(client) {}
    DLinkNode(DLinkNode const&) = delete;
    DLinkNode& operator=(DLinkNode const&) = delete;
    // A node that dies while on a list leaves it, so the list never reaches a dead node.
    ~DLinkNode();

    T* client() const { return m_client; }
    void setClient(T* client) { m_client = client; }
    DLinkNode* next() const { return m_next; }
    DLinkNode* prev() const { return m_prev; }
    // On some list (a node belongs to at most one list at a time).
    bool isLinked() const { return m_list != nullptr; }

  private:
    friend class DLinkedList<T>;
    T* m_client;
    DLinkNode* m_prev = nullptr;
    DLinkNode* m_next = nullptr;
    DLinkedList<T>* m_list = nullptr;
};

template <class T>
class DLinkedList {
  public:
    explicit DLinkedList(char const* name) : m_name(name) {}
    DLinkedList(DLinkedList const&) = delete;
    DLinkedList& operator=(DLinkedList const&) = delete;
    // Unlinks whatever is left, so that no node keeps pointing at a dead list.
    ~DLinkedList() {
        while (m_head) isolate(*m_head);
    }

    char const* name() const { return m_name; }
    DLinkNode<T>* head() const { return m_head; }
    DLinkNode<T>* tail() const { return m_tail; }
    size_t size() const { return m_size; }
    bool empty() const { return m_head == nullptr; }

    // Puts a node at the head of the list; false when it already is on a list.
    bool insert(DLinkNode<T>& node) {
        if (node.m_list) return false;
        node.m_prev = nullptr;
        node.m_next = m_head;
        if (m_head)
            m_head->m_prev = &node;
        else
            m_tail = &node;
        m_head = &node;
        node.m_list = this;
        ++m_size;
        return true;
    }

    // Takes a node off this list; false when it is not on this list.
    bool isolate(DLinkNode<T>& node) {
        if (node.m_list != this) return false;
        if (node.m_prev)
            node.m_prev->m_next = node.m_next;
        else
            m_head = node.m_next;
        if (node.m_next)
            node.m_next->m_prev = node.m_prev;
        else
            m_tail = node.m_prev;
        node.m_prev = node.m_next = nullptr;
        node.m_list = nullptr;
        --m_size;
        return true;
    }

    // Takes the head node off the list and returns its client; null when the list is empty.
    T* popClient() {
        if (!m_head) return nullptr;
        DLinkNode<T>* node = m_head;
        isolate(*node);
        return node->client();
    }

  private:
    char const* m_name;
    DLinkNode<T>* m_head = nullptr;
    DLinkNode<T>* m_tail = nullptr;
    size_t m_size = 0;
};

template <class T>
DLinkNode<T>::~DLinkNode() {
    if (m_list) m_list->isolate(*this);
}
