#include "text/LList.h"

#include <gtest/gtest.h>
#include <string>

namespace {

struct Item {
    Item(char itemName, std::string& itemLog) : name(itemName), log(itemLog) {}
    ~Item() { log += name; }
    char name;
    std::string& log;  // names of the destroyed ones, in order
    Item* pNext = nullptr;
};

class LListTest : public testing::Test {
protected:
    LListTest() {
        for (char name : {'a', 'b', 'c'}) list.Add(new Item(name, log));
    }

    static std::string Names(const LList<Item>& walked) {
        std::string names;
        for (LListIterator<Item> it(walked); it; it.Next()) names += it->name;
        return names;
    }

    std::string log;
    LList<Item> list;
};

TEST_F(LListTest, VisitsNewestFirstAndDestroysInThatOrder) {
    EXPECT_EQ(Names(list), "cba");
    EXPECT_EQ(list.Head()->name, 'c');
    list.Clear();
    EXPECT_EQ(log, "cba");
    EXPECT_EQ(list.Head(), nullptr);
    list.Clear();
    EXPECT_TRUE(list.IsEmpty());
    {
        LList<Item> other;
        other.Add(new Item('z', log));
    }
    EXPECT_EQ(log, "cbaz");
}

TEST_F(LListTest, DetachGivesTheElementAwayAndMovesOn) {
    const struct {
        char name;
        const char* left;
        char next;
    } cases[] = {{'c', "ba", 'b'}, {'a', "b", 0}, {'b', "", 0}};
    for (const auto& expected : cases) {
        LListIterator<Item> it(list);
        while (it->name != expected.name) it.Next();
        Item* const detached = list.Detach(it);
        ASSERT_NE(detached, nullptr);
        EXPECT_EQ(detached->name, expected.name);
        EXPECT_EQ(it ? it->name : 0, expected.next);
        EXPECT_EQ(Names(list), expected.left);
        delete detached;
    }
    LListIterator<Item> end(list);
    EXPECT_EQ(list.Detach(end), nullptr);
}

TEST_F(LListTest, DeletingWhileWalkingSkipsNothing) {
    for (LListIterator<Item> it(list); it;) {
        if (it->name == 'b')
            it.Next();
        else
            list.Delete(it);
    }
    EXPECT_EQ(log, "ca");
    EXPECT_EQ(Names(list), "b");
}

TEST_F(LListTest, ForeignElementIsLeftAloneButTheCursorMovesOn) {
    LList<Item> other, empty;
    other.Add(new Item('x', log));
    other.Add(new Item('y', log));
    for (LList<Item>* target : {&list, &empty}) {
        LListIterator<Item> it(other);
        target->Delete(it);
        EXPECT_EQ(it->name, 'x');
    }
    EXPECT_EQ(Names(list) + Names(other) + log, "cbayx");
}

// An element that looks at its list while it dies must not find itself there.
struct Watcher {
    LList<Watcher>* list;
    bool* sawItself;
    Watcher* pNext = nullptr;
    ~Watcher() {
        for (LListIterator<Watcher> it(*list); it; it.Next()) *sawItself |= it.Get() == this;
    }
};

TEST(LListUnlink, ElementsAreUnlinkedBeforeTheirDestructorRuns) {
    bool sawItself = false;
    LList<Watcher> list;
    for (int i = 0; i < 3; i++) list.Add(new Watcher{&list, &sawItself});
    LListIterator<Watcher> it(list);
    list.Delete(it);
    list.Clear();
    EXPECT_FALSE(sawItself);
}

}  // namespace
