#include "tests/harness/pack_builder.h"

namespace test {

namespace {

std::string number(unsigned int value) {
    std::string bytes(4, 0);
    put_number(bytes, 0, value);
    return bytes;
}

// The mask, written down once more from its description.
class Mask {
public:
    explicit Mask(unsigned short key) : state_(key * 0x9E3779B9u), on_(key != 0) {}

    std::string operator()(std::string bytes) {
        if (!on_) return bytes;
        for (char& byte : bytes) {
            if (at_++ % 4 == 0) step();
            byte = static_cast<char>(byte ^ static_cast<char>(state_ >> ((at_ - 1) % 4 * 8)));
        }
        return bytes;
    }

private:
    void step() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 17;
        state_ ^= state_ << 5;
    }

    unsigned int state_;
    bool on_;
    unsigned int at_ = 0;
};

std::string widened(std::string const& names) {
    std::string wide;
    // The high bytes are for nobody to look at.
    for (char const c : names) wide += {c, static_cast<char>(c ? 0x55 : 0)};
    return wide;
}

}  // namespace

void put_number(std::string& bytes, std::size_t at, unsigned int value) {
    for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>(value >> (8 * i));
}

std::string build_pack(PackRecipe const& recipe) {
    unsigned int const alignment = recipe.version == '0' ? 1 : recipe.alignment;
    std::string names, ends, data;
    for (auto const& [name, bytes] : recipe.entries) names += name + '\0';
    std::size_t const width = recipe.version == '2' ? 1 : 2;
    std::size_t const header = recipe.version == '0' ? 12 : 16;
    std::size_t const data_start = header + names.size() * width + 4 * recipe.entries.size();
    auto const pad = [&] {
        data.resize(
            (data_start + data.size() + alignment - 1) / alignment * alignment - data_start, '~');
    };
    for (auto const& [name, bytes] : recipe.entries) {
        pad();
        data += bytes;
        ends += number(static_cast<unsigned int>(data_start + data.size()));
    }
    if (recipe.pad_end) pad();

    Mask mask(recipe.key);
    std::string pack = std::string("PAK") + recipe.version;
    pack += mask(number(static_cast<unsigned int>(names.size())));
    pack += mask(number(static_cast<unsigned int>(recipe.entries.size())));
    if (recipe.version != '0') pack += mask(number(alignment));
    names = mask(names);
    pack += recipe.version == '2' ? names : widened(names);
    return pack + mask(ends) + data;
}

}  // namespace test
