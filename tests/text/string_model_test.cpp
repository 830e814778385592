// string_model_test.cpp - random operations on both widths beside a simple model.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>

#include "qx/text/string.h"
#include "tests/harness/random.h"

namespace {

// The contract in its plainest form: contents and the capacity that each operation leaves.
template <typename Unit>
struct Model {
    std::basic_string<Unit> text;
    unsigned int capacity = 0;

    void grow_to(std::size_t wanted) {
        if (wanted > capacity) capacity = std::max(2 * capacity, unsigned(wanted));
    }
    void resize(std::size_t length, Unit value) {
        text.resize(length, value);
        grow_to(length);
    }
    void append(std::basic_string<Unit> const& more) { grow_to((text += more).size()); }
    void assign(std::basic_string<Unit> const& other) {
        capacity = std::max(capacity, unsigned((text = other).size()));
    }
    void become(std::basic_string<Unit> const& other) { *this = {other, unsigned(other.size())}; }
};

template <typename Text>
class Walk {
    using Unit = typename Text::value_type;
    using Plain = std::basic_string<Unit>;

public:
    explicit Walk(unsigned int salt) : random_(salt) {}

    void step() {
        unsigned int const i = random_.below(count), j = random_.below(count);
        change(real_[i], model_[i], real_[j], model_[j]);
        check(i);
        check(j);
    }

private:
    static constexpr unsigned int count = 4;
    static constexpr unsigned int longest = 300;

    Plain some() {
        Plain text;
        for (unsigned int n = random_.below(40); n > 0; --n) text += Unit(1 + random_.below(250));
        return text;
    }

    // The other may be the string itself, and so may a text handed in.
    void change(Text& real, Model<Unit>& model, Text& other, Model<Unit>& other_model) {
        if (real.length() > longest) real.clear(), model.text.clear();
        unsigned int const pos = random_.below(real.length() + 1);
        Plain const more(other_model.text), part(model.text, pos), fresh = some();
        unsigned int const length = random_.below(longest);
        switch (random_.below(19)) {
        case 0: return real += other, model.append(more);
        case 1: return real.append(other), model.append(more);
        case 2: return real.append(real.data() + pos, real.length() - pos), model.append(part);
        case 3: return real += real.c_str() + pos, model.append(part);
        case 4: return real += fresh.c_str(), model.append(fresh);
        case 5: return real += Unit('c'), model.append(Plain(1, Unit('c')));
        case 6: return real = other, model.assign(more);
        case 7: return real = real.c_str() + pos, model.assign(part);
        case 8: return real = Unit('z'), model.assign(Plain(1, Unit('z')));
        case 9: return real = Text(other), model.become(more);
        case 10: return real = real.substr(pos, 9), model.become(part.substr(0, 9));
        case 11: return real = real + other, model.become(model.text + more);
        case 12: return real = Unit('a') + real, model.become(Unit('a') + model.text);
        case 13: return real.swap(other), std::swap(model, other_model);
        case 14: return real.clear(), model.text.clear();
        case 15: return real.reserve(length), model.grow_to(length);
        case 16: return real.resize(length, Unit('f')), model.resize(length, Unit('f'));
        case 18: return real = std::move(other), std::swap(model, other_model);  // swapped
        case 17: return real.resize(length), model.resize(length, Unit());
        }
    }

    // Texts are also handed on by pointer, so that none may keep a terminator.
    void check(unsigned int i) {
        Text& real = real_[i];
        ASSERT_EQ(Plain(real.begin(), real.end()), model_[i].text);
        ASSERT_EQ(real.capacity(), model_[i].capacity);
        ASSERT_EQ(real.data()[real.length()], Unit());
        ASSERT_EQ(real.c_str() == Text::static_empty_string(), real.capacity() == 0);
        std::replace(real.begin(), real.end(), Unit(), Unit('0'));
        std::replace(model_[i].text.begin(), model_[i].text.end(), Unit(), Unit('0'));
    }

    test::Random random_;
    Text real_[count];
    Model<Unit> model_[count];
};

template <typename Text>
void walk(unsigned int salt) {
    Walk<Text> walk(salt);
    for (unsigned int i = 0; i < 100000 && !testing::Test::HasFatalFailure(); ++i) walk.step();
}

TEST(StringModel, holds_under_random_operations) {
    walk<QX::String>(1);
    walk<QX::UniString>(2);
}

}  // namespace
