// assertions.cpp - a game that fails its assertions, and what a host makes of them.
//
//   assertions                 hooks answer in place of a person; nothing waits
//   assertions --dialog CASE   shows the real dialog: word, short, long, lines, screen, teams, or a
//                              team's bit as a number from 0 to 13
//
// Exit codes: 0 as told, 1 something went otherwise, 2 wrong arguments.
#define QX_ASSERTS 1
#include "qx/diagnostics/assert.h"
#include "qx/qx.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

// --- A host's hooks ------------------------------------------------------------------------------

int asked = 0;

// Stands where a test machine has no person: notes the failure and ignores all of its site.
bool answer_for_a_person(bool information, QX::UniString const& text, bool&, bool& ignore_all) {
    ++asked;
    std::printf(
        "-- %s %d\n%s\n", information ? "information" : "failure", asked,
        QX::must_fix_string_narrow(text).c_str());
    ignore_all = !information;
    return false;  // dealt with: no dialog
}

// Shows where a failure came from.
QX_NOINLINE void print_callers() {
    std::array<void*, 32> frames = {};
    QX::stack::trace(frames, 1);
    frames[3] = nullptr;  // what called the program is of no interest
    QX::stack::symbolicate(
        frames, {}, [](char* name) { std::printf("   called from %s\n", name); }, {}, {});
}

// --- A game --------------------------------------------------------------------------------------

struct Unit {
    QX::String name;
    int health;
};

void strike(Unit& unit, int damage) {
    QX_ASSERT_TEAM(QX::TI_BATTLE, damage >= 0, "a blow that heals " + unit.name);
    unit.health -= damage;
}

QX_NOINLINE bool load_map(bool there) {
    if (!QX_VERIFY(there)) print_callers();
    return there;
}

int play() {
    Unit guard = {"the guard", 10};
    for (int damage : {3, -1, -2, 4}) strike(guard, damage);  // asks once: then all are ignored
    QX_ASSERT(guard.health < 10);                             // holds
    load_map(false);

    QX::team_subscriptions = QX::TI_SOUND.team_mask;  // this user works on sound alone
    QX_ASSERT_TEAM(QX::TI_UI, guard.name.empty(), "not for this user");
    QX_ASSERT_TEAM(QX::TI_SOUND, guard.health > 10, "no sound for a dying guard");
    QX::team_subscriptions = 0;

    QX::message_box(true, QX::String("The game is over."));
    std::printf("asked %d times, the guard has %d left\n", asked, guard.health);
    return asked == 4 && guard.health == 6 ? 0 : 1;
}

// --- The dialog itself ---------------------------------------------------------------------------

struct Shown {
    QX::String heading;
    QX::String details;
    unsigned int teams;
};

QX::String repeated(char const* text, int times) {
    QX::String all;
    for (int i = 0; i < times; ++i) all += text;
    return all;
}

bool choose(char const* name, Shown& shown) {
    shown = {
        "a blow that heals the guard", "damage >= 0\nbattle\\unit.cpp(120)",
        QX::TI_BATTLE.team_mask};
    char* end = nullptr;
    unsigned long const bit = std::strtoul(name, &end, 10);
    if (end != name && *end == 0 && bit < 14) {
        shown.teams = 1u << bit;
    } else if (std::strcmp(name, "long") == 0) {
        shown.heading = repeated("a heading of many words that does not fit into one line, ", 5);
        shown.details = repeated("units.find(name) != units.end() && ", 12) + "\nunit.cpp(9)";
        shown.teams = 0x2FFF;
    } else if (std::strcmp(name, "lines") == 0) {
        shown.details = repeated("a line of the stack && more <of> it\n", 25) + "unit.cpp(120)";
    } else if (std::strcmp(name, "screen") == 0) {
        shown.details = repeated("a line of the log\n", 42) + "unit.cpp(120)";
    } else if (std::strcmp(name, "word") == 0) {
        shown = {"no", "", 0};
    } else if (std::strcmp(name, "teams") == 0) {
        shown.teams = 0x3FFF;
    } else {
        return std::strcmp(name, "short") == 0;
    }
    return true;
}

int show_dialog(char const* name) {
    Shown shown;
    if (!choose(name, shown)) return 2;
    bool ignore_all = false;
    bool const retry = QX::ignore_all_message_box(
        ignore_all, shown.heading, shown.details, QX::team_names_from_team_mask(shown.teams),
        QX::ASSERT_SEVERITY_HIGH);
    std::printf("%s\n", retry ? "retry" : ignore_all ? "ignore all" : "ignore");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 3 && std::strcmp(argv[1], "--dialog") == 0) return show_dialog(argv[2]);
    if (argc != 1) return 2;
    QX::qx_message_box_hook = answer_for_a_person;
    return play();
}
