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
    void append(std::basic_string<Unit> const& more) {
        text += more;
        grow_to(text.size());
    }
    void assign(std::basic_string<Unit> const& other) {
        text = other;
        capacity = std::max(capacity, unsigned(other.size()));
    }
    void become(std::basic_string<Unit> const& other) {
        text = other;
        capacity = unsigned(other.size());
    }
};

template <typename Text>
class Walk {
    using Unit = typename Text::value_type;
    using Plain = std::basic_string<Unit>;

public:
    explicit Walk(unsigned int salt) : random_(salt) {}

    void step() {
        unsigned int const i = random_.below(count);
        unsigned int const j = random_.below(count);
        switch (random_.below(4)) {
        case 0: append(real_[i], model_[i], real_[j], model_[j].text); break;
        case 1: append_part(real_[i], model_[i]); break;
        case 2: assign(real_[i], model_[i], real_[j], model_[j]); break;
        case 3: resize(real_[i], model_[i]); break;
        }
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

    // The other may be the string itself.
    void append(Text& real, Model<Unit>& model, Text const& other, Plain const more) {
        switch (random_.below(3)) {
        case 0: real += other; break;
        case 1: real.append(other); break;
        case 2: real += other.c_str(); break;
        }
        model.append(more);
    }

    // Part of the string itself, a character of it, or a new text.
    void append_part(Text& real, Model<Unit>& model) {
        unsigned int const pos = random_.below(real.length() + 1);
        Plain const fresh = some();
        switch (random_.below(4)) {
        case 0:
            real.append(real.data() + pos, real.length() - pos);
            return model.append(Plain(model.text, pos));
        case 1: real += real.c_str() + pos; return model.append(Plain(model.text, pos));
        case 2: real += fresh.c_str(); return model.append(fresh);
        case 3: real += Unit('c'); return model.append(Plain(1, Unit('c')));
        }
    }

    void assign(Text& real, Model<Unit>& model, Text& other, Model<Unit>& other_model) {
        unsigned int const pos = random_.below(real.length() + 1);
        switch (random_.below(8)) {
        case 0: real = other; return model.assign(Plain(other_model.text));
        case 1: real = real.c_str() + pos; return model.assign(Plain(model.text, pos));
        case 2: real = Unit('z'); return model.assign(Plain(1, Unit('z')));
        case 3: real = Text(other); return model.become(Plain(other_model.text));
        case 4: real = real.substr(pos, 9); return model.become(Plain(model.text, pos, 9));
        case 5: real = real + other; return model.become(model.text + other_model.text);
        case 6: real = Unit('a') + real; return model.become(Unit('a') + model.text);
        case 7: real.swap(other); return std::swap(model, other_model);
        }
    }

    void resize(Text& real, Model<Unit>& model) {
        unsigned int const length = random_.below(longest);
        if (real.length() > longest || random_.chance(6)) {
            real.clear();
            model.text.clear();
        } else if (random_.chance(3)) {
            real.reserve(length);
            model.grow_to(length);
        } else {
            bool const filled = random_.chance(2);
            filled ? real.resize(length, Unit('f')) : real.resize(length);
            model.text.resize(length, filled ? Unit('f') : Unit());
            model.grow_to(length);
            if (!filled) erase_terminators(real, model);
        }
    }

    // Texts are also handed on by pointer, so none may hold a terminator.
    static void erase_terminators(Text& real, Model<Unit>& model) {
        for (unsigned int i = 0; i < real.length(); ++i) {
            if (real[i] == 0) real[i] = model.text[i] = Unit('0');
        }
    }

    void check(unsigned int i) {
        Text const& real = real_[i];
        ASSERT_EQ(Plain(real.begin(), real.end()), model_[i].text);
        ASSERT_EQ(real.capacity(), model_[i].capacity);
        ASSERT_EQ(real.data()[real.length()], Unit());
        ASSERT_EQ(real.c_str() == Text::static_empty_string(), real.capacity() == 0);
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

TEST(StringModel, holds_for_narrow_strings_under_random_operations) {
    walk<QX::String>(1);
}

TEST(StringModel, holds_for_wide_strings_under_random_operations) {
    walk<QX::UniString>(2);
}

}  // namespace
