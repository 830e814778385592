// texts.h - the texts that the benchmarks of this folder read, made from constant seeds.
#pragma once

#include <cctype>
#include <cstdint>
#include <string>

namespace texts {

class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}

    unsigned int below(unsigned int limit) {
        state_ = state_ * 6364136223846793005u + 1442695040888963407u;
        return static_cast<unsigned int>((state_ >> 33) % limit);
    }

    std::string word(unsigned int shortest, unsigned int longest) {
        std::string text;
        for (auto length = shortest + below(longest - shortest + 1); length; --length)
            text += static_cast<char>('a' + below(26));
        return text;
    }

    std::string number() { return std::to_string(below(2000)) + "." + std::to_string(below(1000)); }

private:
    std::uint64_t state_;
};

// Levels of a game: many small elements with 3 to 8 attributes, few texts, few references.
inline std::string xml(std::size_t size) {
    static char const* const tags[] = {"entity", "light", "trigger", "mesh", "sound", "path"};
    static char const* const names[] = {"id",   "name", "position", "rotation", "scale",
                                        "mesh", "team", "priority", "material", "visible"};
    Random random(2024);
    std::string text = "<?xml version=\"1.0\"?>\n<level>\n";
    while (text.size() < size) {
        text += "  <group name=\"" + random.word(4, 12) + "\">\n";
        for (auto count = 4 + random.below(20); count; --count) {
            std::string const tag = tags[random.below(6)];
            text += "    <" + tag;
            unsigned int const first = random.below(10);
            for (auto attributes = 3 + random.below(6); attributes; --attributes) {
                bool const word = random.below(2);
                text += std::string(" ") + names[(first + attributes) % 10] + "=\"" +
                        (word ? random.word(3, 14) : random.number()) +
                        (random.below(60) ? "" : "&amp;") + "\"";
            }
            if (random.below(8)) {
                text += "/>\n";
            } else {
                text += ">" + random.word(5, 30) + "</" + tag + ">\n";
            }
        }
        text += "  </group>\n";
    }
    return text + "</level>\n";
}

// C-like source: statements of a few shapes over a vocabulary of 48 names.
inline std::string code(std::size_t size) {
    static char const* const shapes[] = {
        "    n = n + i;\n",
        "    if (n == i) {\n",
        "    }\n",
        "    n->n(n, f);\n",
        "    for (n = i; n < i; ++n) {\n",
        "    n[i] = n * f - n;  // n n n\n",
        "    int n = n(n, \"n n\");\n",
        "\n",
        "    return n && n != i;\n",
        "static n n(n n, n n) {\n",
    };
    Random random(77);
    std::string names[48];
    for (auto& name : names) name = random.word(1, 9);
    std::string text;
    while (text.size() < size) {
        std::string const shape = shapes[random.below(10)];
        for (std::size_t i = 0; i < shape.size(); ++i) {
            char const* const at = shape.c_str() + i;
            bool const alone = !std::isalpha(at[1]) && (i == 0 || !std::isalpha(at[-1]));
            if (*at == 'n' && alone)
                text += names[random.below(48)];
            else if (*at == 'i' && alone)
                text += std::to_string(random.below(300));
            else if (*at == 'f' && alone)
                text += random.number();
            else
                text += *at;
        }
    }
    return text;
}

// Lines of six columns.
inline std::string table(std::size_t size) {
    Random random(5);
    std::string text;
    while (text.size() < size) {
        text += std::to_string(random.below(1000000)) + "\t" + random.word(4, 20) + "\t" +
                random.number() + "\t" + random.number() + "\t" + random.word(8, 24) + "\t" +
                std::to_string(random.below(100)) + "\r\n";
    }
    return text;
}

}  // namespace texts
