#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <utility>
#include <vector>

#include "qx/base/dynamic_array.h"
#include "qx/base/standard_containers.h"
#include "qx/text/string.h"
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
    ~Copied() { --living, value = -1; }

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
    void TearDown() override { EXPECT_EQ(Copied::living, 0); }
};

using SequenceTypes = testing::Types<Array, Vector, List>;
TYPED_TEST_SUITE(Sequences, SequenceTypes);

// One in eight steps fails at a copy; then the container must hold a state that the model admits:
// what it held, or for an insertion or erasure in the middle, a beginning of it.
TYPED_TEST(Sequences, follow_the_standard_containers_through_random_steps) {
    test::Random random;
    TypeParam subject;
    std::vector<int> model;
    for (int step = 0; step < 20000; ++step) {
        unsigned int const at = random.below(static_cast<unsigned int>(model.size()) + 1);
        auto const place = std::next(subject.begin(), at);
        Copied const fresh(step);
        Copied const& value = model.empty() || random.chance(2) ? fresh : subject.front();
        int const number = value.value;
        Copied::copies_to_failure = random.chance(8) ? 1 + static_cast<int>(random.below(6)) : 0;
        unsigned int const kind = random.below(4);
        try {
            switch (kind) {
            case 0: subject.push_back(value), model.push_back(number); break;
            case 1:
                EXPECT_EQ(subject.insert(place, value)->value, number);
                model.insert(model.begin() + at, number);
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
            ASSERT_TRUE(kind != 0 || left == model);
            ASSERT_GE(left.size(), at) << "elements before the place are gone";
            model = left;
        }
        Copied::copies_to_failure = 0;
        if (model.size() > 60) subject.clear(), model.clear();
    }
}

TYPED_TEST(Sequences, copy_assign_swap_and_move_as_values) {
    TypeParam a;
    for (int i = 0; i < 10; ++i) a.push_back(Copied(i));
    TypeParam const b(a);
    TypeParam c;
    c = a;
    c.push_back(Copied(10));
    c.swap(a);
    EXPECT_EQ(values_of(b), values_of(c));
    TypeParam d(std::move(a));
    EXPECT_TRUE(a.empty());
    a = std::move(d);
    a = static_cast<TypeParam const&>(a);
    a.pop_back();
    EXPECT_EQ(values_of(a), values_of(c));
}

TEST(DynamicArray, takes_eight_then_doubles_in_blocks_that_name_their_start) {
    QX::DynamicArray<int> array;
    for (int i = 0; i < 100; ++i) {
        array.push_back(i);
        EXPECT_EQ(array.capacity(), std::max<unsigned long long>(8, std::bit_ceil(i + 1u)));
    }
    char* const data = reinterpret_cast<char*>(array.data());
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(data) % 8, 0u);
    EXPECT_LE(data - reinterpret_cast<char**>(data)[-1], 16);
    array.reserve(300);
    EXPECT_EQ(array.capacity(), 300u);
    array.resize(301);
    EXPECT_EQ(array.capacity(), 600u);
    EXPECT_EQ(array[300], 0);
    EXPECT_THROW(array.reserve(~0ull / sizeof(int) + 2), std::bad_alloc);
    EXPECT_EQ(array[99], 99);
}

TEST(DynamicArray, moves_elements_that_declare_it_safe) {
    QX::DynamicArray<Mover> array;
    array.resize(8);
    array.push_back(Mover());
    array.insert(array.begin(), Mover());
    array.erase(array.begin());
    EXPECT_EQ(Mover::copies, 0);

    QX::DynamicArray<QX::String> texts;
    texts.push_back("spare");
    texts[0].reserve(100);
    texts.reserve(9);
    EXPECT_EQ(texts[0].capacity(), 100u);
}

TEST(Vector, grows_to_twice_or_one) {
    for (unsigned int n : {0u, 1u, 24u})
        EXPECT_EQ(QX_STD::DETAIL::VECTOR_TRAITS::increase_capacity(n), std::max(1u, 2 * n));
}

TEST(List, keeps_iterators_over_growth_and_splices) {
    QX_STD::LIST<int> list, other;
    list.push_back(2);
    auto const two = list.begin();
    other.push_front(1);
    list.splice(two, other);
    EXPECT_TRUE(other.empty());
    EXPECT_TRUE(list.front() == 1 && *two == 2 && list.size() == 2);
}
