// What the library asks of the processor and the system.
#include "qx/app/cpu_config_impl.h"
#include "qx/qx.h"
#include "tests/app/host.h"
#include "tests/harness/stand_in.h"

#include <gtest/gtest.h>

#include <xmmintrin.h>

#include <array>
#include <bit>
#include <span>
#include <time.h>

namespace {

// --- Processors, recorded ------------------------------------------------------------------------

using QX::CPUConfig;
using QX::detail::CpuidLeaf;

struct Recorded {
    unsigned int thread_bits, package_shift;
    std::vector<unsigned int> ids;  // by the processor's bit; those past the end can't be bound
    char const* vendor = "GenuineIntel";
    std::vector<CpuidLeaf> caches = {};
    unsigned int max_leaf = 0x1F;  // which leaves tell the topology: 0x1F, 0xB, or 1 and 4
    unsigned int bound = 0;
};

CpuidLeaf ask(void* of, unsigned int number, unsigned int sub_leaf) {
    auto const& it = *static_cast<Recorded*>(of);
    CpuidLeaf leaf = {it.max_leaf, 0, 0, 0};
    std::memcpy(&leaf.b, it.vendor, 4);
    std::memcpy(&leaf.d, it.vendor + 4, 4);
    std::memcpy(&leaf.c, it.vendor + 8, 4);
    if (number == 0) return leaf;
    leaf = number == 4 && sub_leaf < it.caches.size() ? it.caches[sub_leaf] : CpuidLeaf{};
    unsigned int const cores = 1u << (it.package_shift - it.thread_bits);
    if (number == 4) leaf.a |= (cores - 1) << 26;
    if (number == 1) leaf = {0, it.ids[it.bound] << 24 | 1u << (it.package_shift + 16), 0, 1 << 28};
    if (number < 5 || sub_leaf > 1) return leaf;
    return {sub_leaf ? it.package_shift : it.thread_bits, 1, (sub_leaf + 1) << 8, it.ids[it.bound]};
}

bool bind(void* of, unsigned int bit) {
    auto& it = *static_cast<Recorded*>(of);
    it.bound = bit;
    return bit < it.ids.size();
}

CPUConfig walk(Recorded recorded, unsigned long long mask) {
    CPUConfig config;
    std::memset(&config, 0xAA, sizeof config);
    QX::detail::fill_cpu_config(config, {&recorded, mask, bind, ask});
    return config;
}

TEST(CpuTopology, numbers_packages_cores_and_threads_as_they_appear) {
    struct Row {
        Recorded recorded;
        unsigned long long mask;
        std::string places;  // "package.core.thread" of each
    };
    Row const rows[] = {
        {{1, 4, {0, 2, 4, 1, 3, 5}}, 0x3F, "0.0.0 0.1.0 0.2.0 0.0.1 0.1.1 0.2.1 "},
        {{1, 3, {8, 9, 10, 16, 17, 18}}, 0x3F, "0.0.0 0.0.1 0.1.0 1.0.0 1.0.1 1.1.0 "},
        {{0, 4, {0x10, 0x21, 0x11, 0x20}}, 0xF, "0.0.0 1.0.0 0.1.0 1.1.0 "},
        {{1, 4, {0, 1, 2, 3, 4, 5}}, 0x35, "0.0.0 0.1.0 0.2.0 0.2.1 "},
        {{1, 4, {0, 1, 0}}, 7, "0.0.0 0.1.0 0.2.0 "},  // one identifier twice
        {{1, 4, {0, 1}}, 7, "0.0.0 0.1.0 0.2.0 "},     // one that can't be bound
    };
    for (Row row : rows) {
        for (unsigned int max_leaf : {0x1F, 0xB, 4}) {
            row.recorded.max_leaf = max_leaf;
            CPUConfig const config = walk(row.recorded, row.mask);
            std::string places;
            for (unsigned int i = 0; i < config.logical_processor_count; ++i) {
                auto const& at = config.processors[i];
                for (unsigned int number : {at.package, at.core, at.thread})
                    places += std::to_string(number) + '.';
                places.back() = ' ';
            }
            EXPECT_EQ(places, row.places) << max_leaf;
        }
    }
}

// Nothing but what is told is written, so whole records are compared.
TEST(CpuTopology, other_makers_processors_are_cores_of_their_own) {
    for (unsigned int count : {0u, 1u, 3u, 8u, 64u}) {
        CPUConfig expected = {};
        expected.vendor = count == 8 ? 1 : 5;
        expected.logical_processor_count = count != 0 ? count : 1;
        for (unsigned int i = 0; i < count; ++i) expected.processors[i].core = i;
        Recorded const recorded = {0, 0, {0}, count == 8 ? "AuthenticAMD" : "GenuineIntem"};
        CPUConfig const config = walk(recorded, count == 64 ? ~0ull : ((1ull << count) - 1) << 5);
        EXPECT_EQ(std::memcmp(&config, &expected, sizeof config), 0) << count;
    }
}

TEST(CpuTopologyDeathTest, lists_caches_up_to_the_end_mark_and_dies_at_a_seventh) {
    Recorded recorded = {0, 0, {0}};
    recorded.caches = {{0x21, 0x02C0003F, 63, 0}, {0x63, 0x0380103F, 180223, 0}};
    CPUConfig const config = walk(recorded, 1);
    std::string caches;
    for (auto const& cache : std::span(config.caches, config.cache_count))
        for (unsigned int told : {cache.level, cache.size, cache.kind})
            caches += std::to_string(told) + ' ';
    EXPECT_EQ(caches, "0 49152 2 2 346030080 0 ");
    recorded.caches.resize(7, recorded.caches.front());
    EXPECT_EXIT(
        walk(recorded, 1), testing::ExitedWithCode(1),
        "Need bigger MAX_CACHE_SUBLEAFS\\(6\\) at src.win.intel.cpu_topo.c ");
}

// --- Floating point ------------------------------------------------------------------------------

// Flips each bit in turn: all count but the flags, and what the x87 word does not hold.
TEST(FloatingPoint, state_is_set_from_any_and_checked_bit_by_bit) {
    unsigned short before, x87;
    __asm__ volatile("fnstcw %0" : "=m"(before));
    for (unsigned int bit = 0; bit < 32; ++bit) {
        if (bit == 6 || bit == 7 || bit == 13) continue;
        QX::enable_fp_exceptions();  // which unmasks none
        EXPECT_EQ(_mm_getcsr(), 0x9F80u);
        __asm__ volatile("fnstcw %0" : "=m"(x87));
        EXPECT_EQ(x87, 0x103F | (before & 0xC0));
        x87 = static_cast<unsigned short>(x87 ^ (bit < 16 ? 1u << bit : 0));
        __asm__ volatile("fldcw %0" : : "m"(x87));
        if (bit >= 16) _mm_setcsr(0x9F80 ^ 1u << (bit - 16));
        bool const still = QX::check_fp_state(true);
        EXPECT_TRUE(QX::set_fp_state(false));
        EXPECT_EQ(still, bit > 13 && bit < 22) << bit;
    }
}

// --- Power ---------------------------------------------------------------------------------------

SYSTEM_POWER_STATUS stated = {};

BOOL WINAPI state_power(SYSTEM_POWER_STATUS* out) {
    *out = stated;
    return TRUE;
}

TEST(Power, status_is_read_from_the_systems_flags) {
    test::StandIn const query("GetSystemPowerStatus", state_power);
    constexpr int rows[][5] = {{0, 0, 1, 1, 0}, {1, 1, 0, 0, 0},   {255, 2, -1, 1, 0},
                               {2, 4, 0, 2, 0}, {1, 8, 0, -1, 1},  {1, 9, 0, 0, 1},
                               {1, 7, 0, 2, 0}, {1, 132, 0, 3, 0}, {1, 255, 0, 3, 1}};
    for (auto const& [line, flags, source, level, charging] : rows) {
        stated = {static_cast<BYTE>(line), static_cast<BYTE>(flags), 0, 0, 0xFFFFFFFF, 0};
        QX::POWER::PowerStatus const now = QX::POWER::get_power_status();
        EXPECT_TRUE(now.power_source == source && now.battery_level == level) << line << flags;
        EXPECT_TRUE(now.charging == charging && now.seconds_left == -1) << flags;
    }
}

// One life of the list, which has one only.
TEST(Power, callbacks_run_in_order_until_the_list_is_released_for_good) {
    using namespace QX::POWER;
    test::StandIn const query("GetSystemPowerStatus", state_power);
    stated.BatteryFlag = BATTERY_FLAG_CRITICAL;
    std::string calls;
    auto const add_c = [&](auto&) { calls += 'c'; };
    register_status_change_callback([&](auto&) { register_status_change_callback(add_c); });
    register_status_change_callback([&](auto& now) { calls += std::to_string(now.battery_level); });
    notify_power_status_change();
    EXPECT_EQ(calls, "2c");
    register_status_change_callback({});
    EXPECT_THROW(notify_power_status_change(), std::bad_function_call);
    EXPECT_EQ(calls, "2c2c");
    deallocate_callback_data_structures();
    register_status_change_callback(add_c);
    notify_power_status_change();
    EXPECT_EQ(calls, "2c2c");
}

// --- Time, identifiers, the version --------------------------------------------------------------

TEST(TimeDate, breaks_seconds_down_in_universal_and_in_local_time) {
    using Fields = std::array<int, 10>;
    _putenv("TZ=QXT-5:30");  // ahead
    _tzset();
    QX::TimeDate date;
    date.set(0xFFFFFFFF);
    EXPECT_EQ(std::bit_cast<Fields>(date), (Fields{2106, 2, 7, 1, 6, 6, 28, 15, 0, 37}));
    date.set_local(1735689599);
    EXPECT_EQ(std::bit_cast<Fields>(date), (Fields{2025, 1, 1, 0, 0, 5, 29, 59, 3, 0}));
}

TEST(SystemQueries, identifiers_are_text_both_ways_and_the_version_stays_unknown) {
    char const* const text = "7d444840-9dc0-11d1-b245-5ffdce74fad2";
    EXPECT_STREQ(QX::uuid_to_string(QX::uuid_from_string(text)).c_str(), text);
    EXPECT_EQ(QX::uuid_from_string(text).data2, 0x9DC0);
    EXPECT_EQ(QX::uuid_from_string("7d444840"), QX::Uuid{});  // malformed
    EXPECT_FALSE(QX::create_uuid() == QX::create_uuid());
    OSVERSIONINFOEXW const zeros = {};
    EXPECT_EQ(std::memcmp(&QX::os_info(), &zeros, sizeof zeros), 0);
}

// --- The clipboard -------------------------------------------------------------------------------

// The system makes wide text of narrow by itself.
TEST(Clipboard, copies_narrow_text_and_pastes_wide_text_alone) {
    test::Host host;
    ASSERT_TRUE(host.come_to_front());
    QX::copy_to_clipboard(L"caf\u00E9 \u20AC");
    ASSERT_TRUE(OpenClipboard(host.window.get_hwnd()));  // as another program would
    auto const narrow = static_cast<char const*>(GlobalLock(GetClipboardData(CF_TEXT)));
    EXPECT_STREQ(narrow, "caf\xC3\xA9 \xE2\x82\xAC");
    CloseClipboard();
    QX::copy_to_clipboard(L"sail");
    EXPECT_STREQ(QX::paste_from_clipboard().c_str(), L"sail");
    auto const narrow_only = +[](UINT format) -> BOOL { return format != CF_UNICODETEXT; };
    test::StandIn const asked("IsClipboardFormatAvailable", narrow_only);
    EXPECT_TRUE(QX::paste_from_clipboard().empty());
}

}  // namespace
