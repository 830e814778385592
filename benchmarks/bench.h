// bench.h - times contenders side by side in one run and prints ratios.
//
// The contenders of a row take turns (A B C A B C ...), so that a noisy machine disturbs all alike.
// A row prints the median time of each, and how many times ahead of each rival the first one is:
// the median of the round-by-round ratios, with their spread.
//
//     bench::Table table("arena");
//     table.row("pair of 16 bytes", 1000000, {{"QXLibs", ours}, {"system heap", theirs}});
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace bench {

// Keeps a value from being optimised away.
template <typename T>
inline void keep(T const& value) {
    asm volatile("" : : "r,m"(value) : "memory");
}

struct Contender {
    std::string name;
    std::function<void()> work;  // does all of the row's operations once
};

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

class Table {
public:
    explicit Table(char const* title) {
        if (char const* const text = std::getenv("QX_BENCH_ROUNDS")) rounds_ = std::atoi(text);
        std::printf("\n### %s\n\n| workload | contender | ns/op | first is ahead by |\n", title);
        std::printf("| --- | --- | --- | --- |\n");
    }

    // `operations` is what one call of a contender's work does; times print per operation.
    void row(char const* name, double operations, std::vector<Contender> const& contenders) const {
        std::vector<std::vector<double>> times(contenders.size());
        for (auto const& contender : contenders) contender.work();  // warm
        for (int round = 0; round < rounds_; ++round) {
            for (std::size_t i = 0; i < contenders.size(); ++i)
                times[i].push_back(time(contenders[i].work) / operations);
        }
        for (std::size_t i = 0; i < contenders.size(); ++i)
            print(name, contenders[i].name, times[0], times[i], i == 0);
        std::fflush(stdout);
    }

    // A contender's line: `first` are the times of the row's first one, round by round.
    static void print(
        char const* row, std::string const& name, std::vector<double> const& first,
        std::vector<double> const& own, bool is_first) {
        if (is_first) {
            std::printf("| %s | **%s** | %.4g | |\n", row, name.c_str(), median(own));
            return;
        }
        std::vector<double> ratios;
        for (std::size_t i = 0; i < own.size(); ++i) ratios.push_back(own[i] / first[i]);
        auto const [low, high] = std::minmax_element(ratios.begin(), ratios.end());
        std::printf(
            "| | %s | %.4g | %.2f [%.2f..%.2f] |\n", name.c_str(), median(own), median(ratios),
            *low, *high);
    }

private:
    static double time(std::function<void()> const& work) {
        auto const start = std::chrono::steady_clock::now();
        work();
        auto const end = std::chrono::steady_clock::now();
        return std::chrono::duration<double, std::nano>(end - start).count();
    }

    int rounds_ = 11;
};

}  // namespace bench
