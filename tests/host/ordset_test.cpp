#include "platform/ordset.h"

#include <cmath>
#include <map>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct Row {
    int32_t index;
    int payload;
};

long comparisons;

int compare_rows(const void *a, const void *b) {
    comparisons++;
    // The reverse of strcmp's convention.
    return INTCMP(static_cast<const Row *>(b)->index,
                  static_cast<const Row *>(a)->index);
}

class Ordset : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(ordset_create(&set, 1, 1, compare_rows, 1), ORDSET_CREATED);
    }
    void TearDown() override {
        ordset_destroy(&set);
    }
    struct ordset *set = nullptr;
};

TEST_F(Ordset, HoldsNothingAtFirst) {
    Row key = {1, 0};
    EXPECT_EQ(ordset_size(set), 0u);
    EXPECT_EQ(ordset_find(set, &key), nullptr);
    EXPECT_EQ(ordset_find_nextgreater(set, &key), nullptr);
    EXPECT_EQ(ordset_find_nth_obj(set, 1), nullptr);
    EXPECT_EQ(ordset_remove(set, &key), nullptr);
}

TEST_F(Ordset, RefusesASecondObjectOfOneKey) {
    Row first = {7, 1}, second = {7, 2};
    EXPECT_EQ(ordset_add(set, &first, &first), &first);
    EXPECT_EQ(ordset_add(set, &second, &second), nullptr);
    EXPECT_EQ(ordset_find(set, &second), &first);
    EXPECT_EQ(ordset_size(set), 1u);
}

TEST_F(Ordset, CountsPositionsFromOne) {
    Row rows[] = {{30, 0}, {10, 0}, {20, 0}};
    for (Row &row : rows)
        ordset_add(set, &row, &row);
    EXPECT_EQ(ordset_find_nth_obj(set, 0), nullptr);
    EXPECT_EQ(ordset_find_nth_obj(set, 1), &rows[1]);
    EXPECT_EQ(ordset_find_nth_obj(set, 2), &rows[2]);
    EXPECT_EQ(ordset_find_nth_obj(set, 3), &rows[0]);
    EXPECT_EQ(ordset_find_nth_obj(set, 4), nullptr);
}

TEST_F(Ordset, OrdersNegativeKeysFirst) {
    Row low = {INT32_MIN, 0}, high = {INT32_MAX, 0}, key = {-1, 0};
    ordset_add(set, &high, &high);
    ordset_add(set, &low, &low);
    EXPECT_EQ(ordset_find_nth_obj(set, 1), &low);
    EXPECT_EQ(ordset_find_nextgreater(set, &key), &high);
}

TEST(OrdsetHandle, NullHoldsNothing) {
    Row key = {1, 0};
    EXPECT_EQ(ordset_add(nullptr, &key, &key), nullptr);
    EXPECT_EQ(ordset_find(nullptr, &key), nullptr);
    EXPECT_EQ(ordset_find_nextgreater(nullptr, &key), nullptr);
    EXPECT_EQ(ordset_find_nth_obj(nullptr, 1), nullptr);
    EXPECT_EQ(ordset_remove(nullptr, &key), nullptr);
    EXPECT_EQ(ordset_size(nullptr), 0u);
    struct ordset *none = nullptr;
    ordset_destroy(&none);
    EXPECT_EQ(none, nullptr);
}

TEST(OrdsetHandle, UnknownFlagsMakeNoSet) {
    struct ordset *set = nullptr;
    EXPECT_NE(ordset_create(&set, 2, 1, compare_rows, 1), ORDSET_CREATED);
    EXPECT_NE(ordset_create(&set, 1, 0, compare_rows, 1), ORDSET_CREATED);
    EXPECT_NE(ordset_create(&set, 1, 1, nullptr, 1), ORDSET_CREATED);
    EXPECT_NE(ordset_create(&set, 1, 1, compare_rows, 0), ORDSET_CREATED);
    EXPECT_EQ(set, nullptr);
}

TEST(OrdsetHandle, CreateReplacesASetAndKeepsItsObjects) {
    Row row = {5, 42};
    struct ordset *set = nullptr;
    ASSERT_EQ(ordset_create(&set, 0, 1, compare_rows, 1), ORDSET_CREATED);
    ordset_add(set, &row, &row);
    ASSERT_EQ(ordset_create(&set, 0, 1, compare_rows, 1), ORDSET_CREATED);
    EXPECT_EQ(ordset_size(set), 0u);
    EXPECT_EQ(row.payload, 42);
    ordset_destroy(&set);
    EXPECT_EQ(set, nullptr);
}

// The same random operations on the set and on a map, half of them on the row
// of the one before: the set remembers it.
TEST_F(Ordset, BehavesLikeAMap) {
    std::mt19937 random(20241121);
    std::vector<Row> pool(300);
    std::map<int32_t, Row *> model;
    for (size_t i = 0; i < pool.size(); i++)
        pool[i].index = static_cast<int32_t>(i) - 100;
    size_t chosen = 0;
    for (int step = 0; step < 20000; step++) {
        if (random() % 2 == 0)
            chosen = random() % pool.size();
        Row &row = pool[chosen];
        auto held = model.find(row.index);
        void *there = held == model.end() ? nullptr : held->second;
        switch (random() % 4) {
        case 0:
            EXPECT_EQ(ordset_add(set, &row, &row), there ? nullptr : &row);
            model.emplace(row.index, &row);
            break;
        case 1:
            EXPECT_EQ(ordset_remove(set, &row), there);
            model.erase(row.index);
            break;
        case 2: {
            auto next = model.upper_bound(row.index);
            EXPECT_EQ(ordset_find_nextgreater(set, &row),
                      next == model.end() ? nullptr : next->second);
            break;
        }
        default: {
            EXPECT_EQ(ordset_find(set, &row), there);
            auto position = static_cast<uint32_t>(random() % pool.size());
            void *expected = nullptr;
            if (position >= 1 && position <= model.size())
                expected = std::next(model.begin(), position - 1)->second;
            EXPECT_EQ(ordset_find_nth_obj(set, position), expected);
        }
        }
        ASSERT_EQ(ordset_size(set), model.size());
    }
}

// The setting of these tests.
TEST_F(Ordset, HoldsAsManyObjectsAsItMay) {
    constexpr int most = 65536;
    std::vector<Row> rows(most + 1);
    for (int i = 0; i <= most; i++) {
        Row &row = rows[static_cast<size_t>(i)];
        row.index = i;
        EXPECT_EQ(ordset_add(set, &row, &row), i < most ? &row : nullptr);
    }
    EXPECT_EQ(ordset_size(set), static_cast<uint32_t>(most));
    EXPECT_EQ(ordset_remove(set, &rows.front()), &rows.front());
    EXPECT_EQ(ordset_add(set, &rows.back(), &rows.back()), &rows.back());
}

TEST_F(Ordset, ComparesLogarithmically) {
    constexpr int count = 1 << 16;
    std::vector<Row> rows(count);
    for (int i = 0; i < count; i++) {
        rows[static_cast<size_t>(i)].index = i;
        Row &row = rows[static_cast<size_t>(i)];
        comparisons = 0;
        ASSERT_EQ(ordset_add(set, &row, &row), &row);
        // A red-black tree is at most 2 log2(n + 1) deep.
        ASSERT_LE(comparisons, 2 * std::log2(i + 2) + 2);
    }
    const double bound = 2 * std::log2(count + 1) + 2;
    for (int i = 0; i < count; i += 97) {
        Row key = {i, 0};
        comparisons = 0;
        ordset_find(set, &key);
        EXPECT_LE(comparisons, bound);
        comparisons = 0;
        ordset_find_nextgreater(set, &key);
        EXPECT_LE(comparisons, bound);
        comparisons = 0;
        ordset_find_nth_obj(set, static_cast<uint32_t>(i + 1));
        EXPECT_EQ(comparisons, 0);
    }
}

} // namespace
