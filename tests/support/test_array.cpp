#include "support/Array_c.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(ArrayTest, CapacityTargetIsNextMultipleOfTenAbove)
{
    const struct {
        int count;
        int capacity;
    } cases[] = {{0, 10}, {1, 10}, {9, 10}, {10, 20}, {11, 20}, {25, 30}, {99, 100}, {100, 110}};
    for (const auto& c : cases)
        EXPECT_EQ(Array_c<int>::CapacityFor(c.count), c.capacity) << "count " << c.count;
}

TEST(ArrayTest, GrowsInStepsOfTenAndShrinksOnlyWhenFarAboveTarget)
{
    Array_c<int> array;
    EXPECT_EQ(array.GetSize(), 0);
    EXPECT_EQ(array.GetCapacity(), 0);

    int index = -1;
    ASSERT_TRUE(array.Append(100, &index));
    EXPECT_EQ(index, 0);
    EXPECT_EQ(array.GetCapacity(), 10);
    for (int i = 1; i < 10; ++i)
        ASSERT_TRUE(array.Append(100 + i));
    EXPECT_EQ(array.GetCapacity(), 10);
    ASSERT_TRUE(array.Append(110, &index));
    EXPECT_EQ(index, 10);
    EXPECT_EQ(array.GetCapacity(), 20);

    ASSERT_TRUE(array.SetSize(25));
    EXPECT_EQ(array.GetCapacity(), 30);
    // 30 exceeds neither 2 * 12 + 10 = 34: no shrink.
    ASSERT_TRUE(array.SetSize(12));
    EXPECT_EQ(array.GetCapacity(), 30);
    // 30 exceeds both 2 * 2 + 10 = 14 and the target 10.
    ASSERT_TRUE(array.SetSize(2));
    EXPECT_EQ(array.GetSize(), 2);
    EXPECT_EQ(array.GetCapacity(), 10);
    EXPECT_EQ(*array[0], 100);
    EXPECT_EQ(*array[1], 101);

    // Items kept as spares survive a shrinking and regrowing count.
    ASSERT_TRUE(array.SetSize(0));
    ASSERT_TRUE(array.SetSize(2));
    EXPECT_EQ(*array[1], 101);

    EXPECT_FALSE(array.SetSize(-1));
    EXPECT_EQ(array.GetSize(), 2);

    array.FreeAllItems();
    EXPECT_EQ(array.GetSize(), 0);
    EXPECT_EQ(array.GetCapacity(), 0);
    EXPECT_EQ(array[0], nullptr);
}

TEST(ArrayTest, IndexAtOrBeyondCountGivesNull)
{
    Array_c<unsigned int> array;
    EXPECT_EQ(array[0], nullptr);
    ASSERT_TRUE(array.Append(7u));
    ASSERT_NE(array[0], nullptr);
    EXPECT_EQ(array[1], nullptr);  // a spare slot exists but is not in use
    EXPECT_EQ(array[~0ul], nullptr);
    const Array_c<unsigned int>& constArray = array;
    EXPECT_EQ(*constArray[0], 7u);
    EXPECT_EQ(constArray[1], nullptr);
}

TEST(ArrayTest, RemoveKeepsOrderAndTurnsTheItemIntoASpare)
{
    Array_c<int> array;
    for (int value : {1, 2, 3})
        ASSERT_TRUE(array.Append(value));
    int* first = array[0];

    ASSERT_TRUE(array.Remove(0));
    ASSERT_EQ(array.GetSize(), 2);
    EXPECT_EQ(*array[0], 2);
    EXPECT_EQ(*array[1], 3);
    EXPECT_EQ(array[2], nullptr);

    // The removed item sits in the former last place and is reused.
    ASSERT_TRUE(array.SetSize(3));
    EXPECT_EQ(array[2], first);
    EXPECT_EQ(*array[2], 1);

    EXPECT_FALSE(array.Remove(-1));
    EXPECT_FALSE(array.Remove(3));
    EXPECT_EQ(array.GetSize(), 3);

    ASSERT_TRUE(array.Remove(2));
    ASSERT_TRUE(array.Remove(1));
    ASSERT_TRUE(array.Remove(0));
    EXPECT_EQ(array.GetSize(), 0);
    EXPECT_FALSE(array.Remove(0));
}

TEST(ArrayTest, HoldsPointerItemsAcrossManyAppendsAndRemoves)
{
    std::vector<int> storage(57);
    Array_c<int*> array;
    for (size_t i = 0; i < storage.size(); ++i) {
        storage[i] = static_cast<int>(i);
        ASSERT_TRUE(array.Append(&storage[i]));
    }
    EXPECT_EQ(array.GetCapacity(), 60);
    // Remove every other element, from the back so that indices stay valid.
    for (int i = 56; i >= 0; i -= 2)
        ASSERT_TRUE(array.Remove(i));
    ASSERT_EQ(array.GetSize(), 28);
    for (int i = 0; i < array.GetSize(); ++i)
        EXPECT_EQ(**array[i], 2 * i + 1);
    EXPECT_EQ(array.GetCapacity(), 60);  // 60 is not above 2 * 28 + 10
}

}  // namespace
