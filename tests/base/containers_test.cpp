#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <string>
#include <vector>

#include "qx/base/dynamic_array.h"
#include "qx/base/standard_containers.h"
#include "tests/harness/failing_allocation.h"
#include "tests/harness/random.h"

namespace {

// Counts the living, forbids assignment, and throws at a chosen copy.
struct Copied {
    explicit Copied(int number) : value(number) { ++living; }
    Copied(Copied const& other) : value(other.value) {
        if (copies_to_failure > 0 && --copies_to_failure == 0) throw value;
        ++living;
    }
    Copied& operator=(Copied const&) = delete;
    ~Copied() {
        --living;
        value = -1;
    }

    int value;
    static inline int living = 0;
    static inline int copies_to_failure = 0;
};

struct Mover {
    using MovesOnGrowth = void;
    Mover() = default;
    Mover(Mover const&) { ++copies; }
    Mover(Mover&&) noexcept {}
    static inline int copies = 0;
};

struct Tree {
    QX::DynamicArray<Tree> children;
};

template <typename Array>
std::vector<int> values_of(Array const& array) {
    std::vector<int> values;
    for (auto const& element : array) values.push_back(element.value);
    return values;
}

using Array = QX::DynamicArray<Copied, QX::DefaultAllocator>;
using Vector = QX_STD::VECTOR<Copied, QX_STD::ALLOCATOR<Copied>, QX_STD::DETAIL::VECTOR_TRAITS>;
using List = QX_STD::LIST<Copied>;

}  // namespace

template <typename Container>
class Sequences : public testing::Test {
public:
    void TearDown() override {
        Copied::copies_to_failure = 0;
        EXPECT_EQ(Copied::living, 0);
    }
};

template <typename Container>
class Arrays : public Sequences<Container> {};

using SequenceTypes = testing::Types<Array, Vector, List>;
using ArrayTypes = testing::Types<Array, Vector>;
TYPED_TEST_SUITE(Sequences, SequenceTypes);
TYPED_TEST_SUITE(Arrays, ArrayTypes);

// One in eight steps fails at a copy; then the container must hold a state that the model admits:
// what it held, or for an insertion or erasure that moved elements, a beginning of it.
TYPED_TEST(Sequences, follow_the_standard_containers_through_random_steps) {
    test::Random random;
    TypeParam subject;
    std::vector<int> model;
    for (int step = 0; step < 20000; ++step) {
        unsigned int const at = random.below(static_cast<unsigned int>(model.size()) + 1);
        auto const place = std::next(subject.begin(), at);
        Copied const value(step);
        Copied::copies_to_failure = random.chance(8) ? 1 + static_cast<int>(random.below(6)) : 0;
        try {
            switch (random.below(4)) {
            case 0:
                subject.push_back(value);
                model.push_back(step);
                break;
            case 1:
                EXPECT_EQ(subject.insert(place, value)->value, step);
                model.insert(model.begin() + at, step);
                break;
            default: {
                unsigned int const gone =
                    std::min(random.below(3), static_cast<unsigned int>(model.size()) - at);
                auto const behind = subject.erase(place, std::next(place, gone));
                EXPECT_EQ(std::distance(subject.begin(), behind), at);
                model.erase(model.begin() + at, model.begin() + at + gone);
            }
            }
            ASSERT_EQ(values_of(subject), model);
        } catch (int) {
            std::vector<int> const left = values_of(subject);
            ASSERT_EQ(Copied::living, static_cast<int>(left.size()) + 1);
            if (left.size() < at) FAIL() << "elements before the place are gone";
            model = left;
        }
        Copied::copies_to_failure = 0;
        if (model.size() > 60) subject.clear(), model.clear();
    }
}

TYPED_TEST(Sequences, copy_assign_swap_and_move_as_values) {
    TypeParam a;
    for (int i = 0; i < 10; ++i) a.push_back(Copied(i));
    TypeParam b(a);
    TypeParam c;
    c = a;
    c.push_back(Copied(10));
    c.swap(a);
    EXPECT_EQ(a.size(), 11u);
    EXPECT_EQ(values_of(b), values_of(c));
    TypeParam d(std::move(a));
    EXPECT_TRUE(a.empty());
    a = std::move(d);
    EXPECT_EQ(a.back().value, 10);
    a = static_cast<TypeParam const&>(a);
    EXPECT_EQ(a.size(), 11u);
    a.pop_back();
    EXPECT_EQ(values_of(a), values_of(c));
}

TYPED_TEST(Arrays, append_and_insert_their_own_elements) {
    TypeParam array;
    array.push_back(Copied(7));
    for (int i = 0; i < 40; ++i) array.push_back(array[0]);
    for (int i = 0; i < 40; ++i) array.insert(array.begin(), array.back());
    EXPECT_EQ(values_of(array), std::vector<int>(81, 7));
}

TYPED_TEST(Arrays, stand_as_they_were_when_a_growth_throws) {
    TypeParam array;
    for (int i = 0; i < 8; ++i) array.push_back(Copied(i));
    ASSERT_EQ(array.capacity(), 8u);
    auto const before = values_of(array);
    for (int nth = 1; nth <= 9; ++nth) {
        Copied::copies_to_failure = nth;
        EXPECT_THROW(array.push_back(Copied(9)), int);
        EXPECT_EQ(values_of(array), before);
        EXPECT_EQ(array.capacity(), 8u);
    }
    test::FailingAllocation const failing(1);
    EXPECT_THROW(array.reserve(9), std::bad_alloc);
    EXPECT_EQ(values_of(array), before);
}

TEST(DynamicArray, takes_eight_then_doubles) {
    QX::DynamicArray<int> array;
    EXPECT_EQ(array.capacity(), 0u);
    EXPECT_EQ(array.data(), nullptr);
    for (int i = 0; i < 100; ++i) {
        array.push_back(i);
        EXPECT_EQ(array.capacity(), std::max<unsigned long long>(8, std::bit_ceil(i + 1u)));
    }
    array.reserve(300);
    EXPECT_EQ(array.capacity(), 300u);
    array.resize(301);
    EXPECT_EQ(array.capacity(), 600u);
    EXPECT_EQ(array[99], 99);
    EXPECT_EQ(array[300], 0);
}

TEST(DynamicArray, refuses_a_size_that_no_heap_can_serve) {
    QX::DynamicArray<long long> array;
    EXPECT_THROW(array.reserve(~0ull / 8 + 2), std::bad_alloc);
    EXPECT_THROW(array.reserve(~0ull), std::bad_alloc);
    EXPECT_TRUE(array.empty());
}

TEST(DynamicArray, walks_sorts_and_nests) {
    QX::DynamicArray<int> array;
    test::Random random;
    for (int i = 0; i < 200; ++i) array.push_back(static_cast<int>(random.below(50)));
    std::sort(array.begin(), array.end());
    QX::DynamicArray<int>::ConstIterator const first = array.begin();
    EXPECT_TRUE(std::is_sorted(first, static_cast<QX::DynamicArray<int> const&>(array).end()));
    Tree tree;
    tree.children.resize(3);
    tree.children[1].children.push_back(tree);
    EXPECT_EQ(tree.children[1].children[0].children.size(), 3u);
}

TEST(DynamicArray, moves_elements_that_declare_it_safe) {
    QX::DynamicArray<Mover> array;
    array.resize(8);
    array.push_back(Mover());
    array.insert(array.begin(), Mover());
    array.erase(array.begin());
    EXPECT_EQ(Mover::copies, 0);
}

// The word before the elements is what the heap handed out and gets back.
TEST(DynamicArray, keeps_its_elements_in_an_aligned_block) {
    static void const* freed;
    static unsigned int asked;
    freed = nullptr;
    QX::allocation_hook = [](void const* block, unsigned int size) {
        if (size == 0)
            freed = block;
        else
            asked = size;
    };
    void const* base = nullptr;
    {
        QX::DynamicArray<int> array;
        array.push_back(1);
        base = reinterpret_cast<void**>(array.data())[-1];
        EXPECT_EQ(asked, 8 * sizeof(int) + 8 + 8);
    }
    QX::allocation_hook = nullptr;
    EXPECT_EQ(freed, base);
}

TEST(Vector, grows_to_twice_or_one) {
    using Traits = QX_STD::DETAIL::VECTOR_TRAITS;
    EXPECT_EQ(Traits::increase_capacity(0), 1u);
    EXPECT_EQ(Traits::increase_capacity(1), 2u);
    EXPECT_EQ(Traits::increase_capacity(24), 48u);
    QX_STD::VECTOR<std::string> texts;
    for (int i = 0; i < 5; ++i) texts.push_back(std::string(40, 'x'));
    EXPECT_EQ(texts.capacity(), 8u);
}

TEST(List, keeps_iterators_over_growth_and_splices) {
    QX_STD::LIST<int> list;
    list.push_back(2);
    auto const two = list.begin();
    QX_STD::LIST<int> other;
    other.push_front(1);
    list.push_back(3);
    list.splice(two, other);
    EXPECT_TRUE(other.empty());
    EXPECT_EQ(std::vector<int>(list.begin(), list.end()), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(*two, 2);
    list.pop_front();
    EXPECT_EQ(list.front(), 2);
    EXPECT_EQ(list.size(), 2u);
}
