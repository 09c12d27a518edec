#include "platform/ordset.h"

#include <map>
#include <random>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct Row {
    int32_t index;
    int payload; // not part of the key
};

long comparisons;
bool null_compared;

int compare_rows(const void *a, const void *b) {
    comparisons++;
    null_compared = null_compared || a == nullptr || b == nullptr;
    if (a == nullptr || b == nullptr)
        return -1;
    // The reverse of strcmp's convention.
    return INTCMP(static_cast<const Row *>(b)->index,
                  static_cast<const Row *>(a)->index);
}

class Ordset : public testing::Test {
  protected:
    void SetUp() override {
        null_compared = false;
        ASSERT_EQ(ordset_create(&set, 1, 1, compare_rows, 1), ORDSET_CREATED);
        ASSERT_NE(set, nullptr);
    }
    void TearDown() override {
        EXPECT_FALSE(null_compared);
        ordset_destroy(&set);
        EXPECT_EQ(set, nullptr);
    }
    void add_all(std::vector<Row> &rows) {
        for (Row &row : rows)
            ASSERT_EQ(ordset_add(set, &row, &row), &row);
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
    EXPECT_EQ(ordset_add(set, &first, &first), nullptr);
    EXPECT_EQ(ordset_find(set, &second), &first);
    EXPECT_EQ(ordset_size(set), 1u);
}

TEST_F(Ordset, CountsPositionsFromOneInItsOrder) {
    std::vector<Row> rows = {{30, 0}, {INT32_MIN, 0}, {INT32_MAX, 0}, {-1, 0}};
    add_all(rows);
    EXPECT_EQ(ordset_find_nth_obj(set, 0), nullptr);
    EXPECT_EQ(ordset_find_nth_obj(set, 1), &rows[1]);
    EXPECT_EQ(ordset_find_nth_obj(set, 2), &rows[3]);
    EXPECT_EQ(ordset_find_nth_obj(set, 3), &rows[0]);
    EXPECT_EQ(ordset_find_nth_obj(set, 4), &rows[2]);
    EXPECT_EQ(ordset_find_nth_obj(set, 5), nullptr);
    EXPECT_EQ(ordset_find_nth_obj(set, UINT32_MAX), nullptr);
}

TEST_F(Ordset, TheNextIsTheFirstBehindTheKey) {
    std::vector<Row> rows = {{30, 0}, {10, 0}, {20, 0}, {-5, 0}};
    add_all(rows);
    const struct {
        int32_t key;
        Row *next;
    } cases[] = {{INT32_MIN, &rows[3]}, {-5, &rows[1]}, {9, &rows[1]},
                 {10, &rows[2]},        {11, &rows[2]}, {20, &rows[0]},
                 {29, &rows[0]},        {30, nullptr},  {INT32_MAX, nullptr}};
    for (const auto &each : cases) {
        Row key = {each.key, 0};
        EXPECT_EQ(ordset_find_nextgreater(set, &key), each.next) << each.key;
    }
}

TEST_F(Ordset, GivesBackWhatItWasGiven) {
    std::vector<Row> rows = {{1, 11}, {2, 22}};
    add_all(rows);
    Row key = {2, 0};
    EXPECT_EQ(ordset_find(set, &key), &rows[1]);
    EXPECT_EQ(ordset_remove(set, &key), &rows[1]);
    EXPECT_EQ(ordset_remove(set, &key), nullptr);
    EXPECT_EQ(ordset_size(set), 1u);
    ordset_destroy(&set);
    EXPECT_EQ(rows[0].payload, 11);
    EXPECT_EQ(rows[1].payload, 22);
}

// The same random operations on the set and on a map.
TEST_F(Ordset, BehavesLikeAMap) {
    std::mt19937 random(20241121);
    std::vector<Row> pool(300);
    std::map<int32_t, Row *> model;
    for (size_t i = 0; i < pool.size(); i++)
        pool[i].index = static_cast<int32_t>(i) - 100;
    for (int step = 0; step < 20000; step++) {
        Row &row = pool[random() % pool.size()];
        auto held = model.find(row.index);
        void *there = held == model.end() ? nullptr : held->second;
        const auto choice = random() % 4;
        if (choice == 0) {
            EXPECT_EQ(ordset_add(set, &row, &row), there ? nullptr : &row);
            model.emplace(row.index, &row);
        } else if (choice == 1) {
            EXPECT_EQ(ordset_remove(set, &row), there);
            model.erase(row.index);
        } else if (choice == 2) {
            EXPECT_EQ(ordset_find(set, &row), there);
        } else if (!model.empty()) {
            const auto position = random() % model.size();
            EXPECT_EQ(
                ordset_find_nth_obj(set, static_cast<uint32_t>(position + 1)),
                std::next(model.begin(), static_cast<long>(position))->second);
        }
        ASSERT_EQ(ordset_size(set), model.size());
    }
}

// A tree or a skip list needs some tens of comparisons here, a list thousands.
TEST_F(Ordset, ComparesLogarithmically) {
    constexpr int count = 2000; // rows that every platform can hold
    constexpr long bound = 64;
    std::vector<Row> rows(count);
    for (int i = 0; i < count; i++) {
        Row &row = rows[static_cast<size_t>(i)];
        row.index = i;
        comparisons = 0;
        ASSERT_EQ(ordset_add(set, &row, &row), &row);
        ASSERT_LE(comparisons, bound);
    }
    for (int i = 0; i < count; i += 7) {
        Row key = {i, 0};
        comparisons = 0;
        ordset_find(set, &key);
        EXPECT_LE(comparisons, bound);
        comparisons = 0;
        ordset_find_nextgreater(set, &key);
        EXPECT_LE(comparisons, bound);
    }
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

TEST(OrdsetHandle, CreateReplacesASetAndKeepsItsObjects) {
    Row row = {5, 42};
    struct ordset *set = nullptr;
    ASSERT_EQ(ordset_create(&set, 0, 1, compare_rows, 1), ORDSET_CREATED);
    ordset_add(set, &row, &row);
    ASSERT_EQ(ordset_create(&set, 0, 1, compare_rows, 1), ORDSET_CREATED);
    EXPECT_EQ(ordset_size(set), 0u);
    EXPECT_EQ(row.payload, 42);
    ordset_destroy(&set);
}

TEST(OrdsetHandle, SetsKnowNothingOfEachOther) {
    Row row = {5, 42};
    struct ordset *rows = nullptr, *requests = nullptr;
    ASSERT_EQ(ordset_create(&rows, 1, 1, compare_rows, 1), ORDSET_CREATED);
    ASSERT_EQ(ordset_create(&requests, 0, 1, compare_rows, 1), ORDSET_CREATED);
    ASSERT_EQ(ordset_add(rows, &row, &row), &row);
    EXPECT_EQ(ordset_find(requests, &row), nullptr);
    ASSERT_EQ(ordset_add(requests, &row, &row), &row);
    EXPECT_EQ(ordset_remove(rows, &row), &row);
    EXPECT_EQ(ordset_size(requests), 1u);
    ordset_destroy(&rows);
    ordset_destroy(&requests);
}

} // namespace
