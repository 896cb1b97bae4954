#include <gtest/gtest.h>

#include <vector>

#include "framework/DLinkedList.h"

namespace {

struct Item {
    explicit Item(int v) : value(v), node(this) {}
    int value;
    DLinkNode<Item> node;
};

std::vector<int> walk(DLinkedList<Item> const& list) {
    std::vector<int> values;
    for (DLinkNode<Item>* n = list.head(); n; n = n->next()) values.push_back(n->client()->value);
    return values;
}

}  // namespace

TEST(DLinkedList, InsertPutsNodesAtTheHeadAndAWalkSeesThemAll) {
    DLinkedList<Item> list("test.list");
    Item a(1), b(2), c(3);
    EXPECT_TRUE(list.insert(a.node));
    EXPECT_TRUE(list.insert(b.node));
    EXPECT_TRUE(list.insert(c.node));
    EXPECT_EQ(walk(list), (std::vector<int>{3, 2, 1}));
    EXPECT_EQ(list.size(), 3u);
    EXPECT_STREQ(list.name(), "test.list");
    EXPECT_FALSE(list.insert(b.node));  // already on a list
}

TEST(DLinkedList, IsolateUnlinksFromHeadMiddleAndTail) {
    DLinkedList<Item> list("l");
    Item a(1), b(2), c(3), d(4);
    for (Item* i : {&a, &b, &c, &d}) list.insert(i->node);
    EXPECT_TRUE(list.isolate(c.node));  // middle
    EXPECT_EQ(walk(list), (std::vector<int>{4, 2, 1}));
    EXPECT_TRUE(list.isolate(d.node));  // head
    EXPECT_TRUE(list.isolate(a.node));  // tail
    EXPECT_EQ(walk(list), (std::vector<int>{2}));
    EXPECT_EQ(list.tail(), &b.node);
    EXPECT_FALSE(list.isolate(a.node));  // not on the list any more
    EXPECT_FALSE(a.node.isLinked());
    DLinkedList<Item> other("other");
    EXPECT_FALSE(other.isolate(b.node));  // on another list
    EXPECT_TRUE(other.insert(a.node));
}
