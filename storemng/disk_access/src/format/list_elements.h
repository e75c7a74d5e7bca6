#ifndef DISK_ACCESS_FORMAT_LIST_ELEMENTS_H
#define DISK_ACCESS_FORMAT_LIST_ELEMENTS_H

#include "comm_list"

namespace disk_access {

/// The elements of a list, in its order: `for (const RecordItem_t& record : ListElements(list))`. During the
/// loop elements may be appended to the list, but not removed.
template <typename T>
class ListElements {
public:
    explicit ListElements(const CCommList<T>& list) : m_list(list) {}

    class Iterator {
    public:
        explicit Iterator(const CCommListNode<T>* node) : m_node(node) {}
        const T& operator*() const { return m_node->data; }
        Iterator& operator++() {
            m_node = m_node->pNext;
            return *this;
        }
        bool operator!=(const Iterator& other) const { return m_node != other.m_node; }

    private:
        const CCommListNode<T>* m_node;
    };

    Iterator begin() const { return Iterator(m_list.m_pHead); }
    Iterator end() const { return Iterator(nullptr); }

private:
    const CCommList<T>& m_list;
};

} // namespace disk_access

#endif // DISK_ACCESS_FORMAT_LIST_ELEMENTS_H
