#include "comm_list"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "comm_list/list_caller.h"

namespace {

int g_nodesAlive = 0;

/// An element that counts its copies in nodes.
struct Counted {
    Counted() { ++g_nodesAlive; }
    Counted(const Counted& other) : value(other.value) { ++g_nodesAlive; }
    Counted& operator=(const Counted&) = default;
    ~Counted() { --g_nodesAlive; }
    int value = 0;
};

using IntList = CCommList<unsigned int>;

TEST(CommList, StartsEmpty) {
    IntList list;
    EXPECT_EQ(list.m_pHead, nullptr);
    EXPECT_EQ(list.m_pTail, nullptr);
    EXPECT_EQ(list.m_nCount, 0);
}

TEST(CommList, MembersLieBehindTheVirtualTableInOrder) {
    IntList list;
    const auto* const base = reinterpret_cast<const char*>(&list);
    EXPECT_EQ(reinterpret_cast<const char*>(&list.m_pHead) - base, static_cast<long>(sizeof(void*)));
    EXPECT_EQ(reinterpret_cast<const char*>(&list.m_pTail) - base, static_cast<long>(2 * sizeof(void*)));
    EXPECT_EQ(reinterpret_cast<const char*>(&list.m_nCount) - base, static_cast<long>(3 * sizeof(void*)));
    EXPECT_EQ(sizeof(CCommListNode<RecordItem_t>), 32 + 2 * sizeof(void*));
    EXPECT_EQ(sizeof(CCommListNode<UnitItem_t>), 8 + 2 * sizeof(void*));
}

TEST(CommList, AddTailKeepsTheOrderAndLinksBothWays) {
    IntList list;
    auto* const a = static_cast<CCommListNode<unsigned int>*>(list.AddTail(7));
    auto* const b = static_cast<CCommListNode<unsigned int>*>(list.AddTail(3));
    auto* const c = static_cast<CCommListNode<unsigned int>*>(list.AddTail(5));
    EXPECT_EQ(list.m_nCount, 3);
    EXPECT_EQ(list.m_pHead, a);
    EXPECT_EQ(list.m_pTail, c);
    EXPECT_EQ(a->data, 7u);
    EXPECT_EQ(b->data, 3u);
    EXPECT_EQ(c->data, 5u);
    EXPECT_EQ(a->pPrev, nullptr);
    EXPECT_EQ(a->pNext, b);
    EXPECT_EQ(b->pPrev, a);
    EXPECT_EQ(b->pNext, c);
    EXPECT_EQ(c->pPrev, b);
    EXPECT_EQ(c->pNext, nullptr);
}

TEST(CommList, RemoveHeadTakesInOrderUntilEmpty) {
    IntList list;
    list.AddTail(1);
    list.AddTail(2);
    list.AddTail(3);
    EXPECT_EQ(list.RemoveHead(), 1u);
    EXPECT_EQ(list.m_pHead->pPrev, nullptr);
    EXPECT_EQ(list.RemoveHead(), 2u);
    EXPECT_EQ(list.m_nCount, 1);
    EXPECT_EQ(list.m_pHead, list.m_pTail);
    EXPECT_EQ(list.RemoveHead(), 3u);
    EXPECT_EQ(list.m_pHead, nullptr);
    EXPECT_EQ(list.m_pTail, nullptr);
    EXPECT_EQ(list.m_nCount, 0);
}

TEST(CommList, CanBeFilledAgainAfterItWasEmptied) {
    IntList list;
    list.AddTail(1);
    list.RemoveHead();
    list.AddTail(2);
    EXPECT_EQ(list.m_pHead, list.m_pTail);
    EXPECT_EQ(list.RemoveHead(), 2u);
}

TEST(CommList, RemoveAllEmptiesAndIsHarmlessOnAnEmptyList) {
    IntList list;
    list.RemoveAll();
    EXPECT_EQ(list.m_nCount, 0);
    list.AddTail(1);
    list.AddTail(2);
    list.RemoveAll();
    EXPECT_EQ(list.m_pHead, nullptr);
    EXPECT_EQ(list.m_pTail, nullptr);
    EXPECT_EQ(list.m_nCount, 0);
    list.RemoveAll();
    EXPECT_EQ(list.m_nCount, 0);
    list.AddTail(9);
    EXPECT_EQ(list.RemoveHead(), 9u);
}

TEST(CommList, FreesItsNodes) {
    {
        CCommList<Counted> list;
        for (int i = 0; i < 5; ++i) {
            list.AddTail(Counted());
        }
        EXPECT_EQ(g_nodesAlive, 5);
        list.RemoveHead();
        EXPECT_EQ(g_nodesAlive, 4);
        list.RemoveAll();
        EXPECT_EQ(g_nodesAlive, 0);
        list.AddTail(Counted());
    }
    EXPECT_EQ(g_nodesAlive, 0);
}

TEST(CommList, DestroysThroughABasePointerToTheInstance) {
    auto* const list = new CCommList<Counted>;
    list->AddTail(Counted());
    delete list;
    EXPECT_EQ(g_nodesAlive, 0);
}

/// Wrong uses must end the process in whatever way the caller is built.
class CommListDeathTest : public ::testing::TestWithParam<const ListCaller*> {};

TEST_P(CommListDeathTest, NullListInAddTail) {
    EXPECT_DEATH(GetParam()->addToNull(),
                 "comm_middle/include/comm_list:[0-9]+: void\\* CCommList<T>::AddTail\\(const T&\\) "
                 "\\[with T = EventItem_t; POS = void\\*\\]: Assertion `this != __null' failed\\.");
}

TEST_P(CommListDeathTest, NullListInAddTailThatTheCompilerCannotForesee) {
    EXPECT_DEATH(GetParam()->addToNullLateKnown(nullptr), "Assertion `this != __null' failed\\.");
}

TEST_P(CommListDeathTest, NullListOfTheCallersOwnElement) {
    EXPECT_DEATH(GetParam()->addToNullOwnElement(nullptr),
                 "\\[with T = Pair; POS = void\\*\\]: Assertion `this != __null' failed\\.");
}

TEST_P(CommListDeathTest, NullListInRemoveHead) {
    EXPECT_DEATH(GetParam()->removeFromNull(),
                 "comm_middle/include/comm_list:[0-9]+: T CCommList<T>::RemoveHead\\(\\) "
                 "\\[with T = EventItem_t\\]: Assertion `this' failed\\.");
}

TEST_P(CommListDeathTest, NullListInRemoveAll) {
    EXPECT_DEATH(GetParam()->emptyNull(),
                 "comm_middle/include/comm_list:[0-9]+: void CCommList<T>::RemoveAll\\(\\) "
                 "\\[with T = unsigned int\\]: Assertion `this!=__null' failed\\.");
}

TEST_P(CommListDeathTest, EmptyListInRemoveHead) {
    EXPECT_DEATH(GetParam()->removeFromEmpty(),
                 "comm_middle/include/comm_list:[0-9]+: T CCommList<T>::RemoveHead\\(\\) "
                 "\\[with T = RecordItem_t\\]: Assertion `m_pHead != __null' failed\\.");
}

INSTANTIATE_TEST_SUITE_P(Callers, CommListDeathTest,
                         ::testing::Values(&list_caller_plain, &list_caller_optimised, &list_caller_release),
                         [](const auto& caller) { return std::string(caller.param->name); });

} // namespace
