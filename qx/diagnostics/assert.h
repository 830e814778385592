// assert.h - assertion macros on top of message_box.h. Optional: qx.h leaves it out, and a host
// that wants rules of its own writes them on the same pieces.
//
//     QX_ASSERT(health >= 0);
//     QX_ASSERT_TEAM(QX::TI_BATTLE, unit != nullptr, "no unit named " + name);
//     if (!QX_VERIFY(file.open(name))) return;  // looked at in every build
//
// A failed assertion goes through these, the first that deals with it ending the matter:
//
//     its site was told to "Ignore All"                              nothing
//     recurring_assert_messages_disabled, and it has failed before   nothing
//     err_msg_redirect answers false                                 nothing more
//     ODS_fn                                                         gets heading and details
//     its team is not subscribed to                                  nothing more
//     dialogs_disabled, dialog_error_fullscreen_mode, in_assert      message_txt
//     ignore_all_message_box                                         hook, remote decision, dialog
//
// With no subscriptions at all every team counts; TI_GLOBAL always does. The heading is red, but
// black for what is of level 2. "Retry" breaks into the debugger and then looks at the condition
// anew. While one assertion is shown another that fails, on any thread, is written as text.
//
// QX_ASSERTS is 1 or 0: unless set before, 0 where NDEBUG is defined. With 0 conditions compile but
// are not looked at, except by QX_VERIFY.
#pragma once

#include "qx/base/compiler.h"
#include "qx/diagnostics/message_box.h"
#include "qx/text/convert.h"
#include "qx/text/string.h"

#if !defined(QX_ASSERTS)
#if defined(NDEBUG)
#define QX_ASSERTS 0
#else
#define QX_ASSERTS 1
#endif
#endif

namespace QX {

// What one assertion in the code remembers, for the life of the process.
struct AssertionSite {
    bool ignore_all;
    bool has_failed;
};

// An assertion as it stands in the code. Texts are UTF-8 and live as long as the code.
struct AssertionPlace {
    char const* condition;
    char const* file;
    unsigned int line;

    // "file(line)", as the output windows of editors read it.
    String text() const { return String(file) + '(' + String::format(line) + ')'; }
};

namespace assertions {

// Marks the time in which an assertion is shown.
class Shown {
public:
    Shown() { in_assert = true; }
    ~Shown() { in_assert = false; }

    Shown(Shown const&) = delete;
    Shown& operator=(Shown const&) = delete;
};

inline bool is_subscribed(TEAM_INFO const& team) {
    return team_subscriptions == 0 ||
           (team.team_mask & (team_subscriptions | TI_GLOBAL.team_mask)) != 0;
}

inline bool is_silent(AssertionSite& site) {
    bool const recurring = site.has_failed;
    site.has_failed = true;
    return site.ignore_all || (recurring && recurring_assert_messages_disabled);
}

}  // namespace assertions

// Reports a failure; `text` may be empty. True: break and look again.
inline bool assertion_failed(
    AssertionSite& site, TEAM_INFO const& team, AssertionPlace const& place, String const& text) {
    if (assertions::is_silent(site)) return false;
    String const where = place.text();
    String const heading = text.empty() ? String(place.condition) : text;
    String const details = text.empty() ? where : place.condition + ('\n' + where);
    if (err_msg_redirect != nullptr &&
        !err_msg_redirect(team, place.condition, where.c_str(), must_fix_string_widen(heading)))
        return false;
    if (ODS_fn != nullptr) ODS_fn(must_fix_string_widen(heading + '\n' + details + '\n'));
    if (!assertions::is_subscribed(team)) return false;
    if (dialogs_disabled || dialog_error_fullscreen_mode || in_assert) {
        message_txt(heading + '\n' + details + '\n');
        return false;
    }
    assertions::Shown const shown;
    return ignore_all_message_box(
        site.ignore_all, heading, details, team_names_from_team_mask(team.team_mask),
        team.level < 2 ? ASSERT_SEVERITY_HIGH : ASSERT_SEVERITY_NORMAL);
}

// What QX_VERIFY gives for a condition that does not hold.
QX_ALWAYS_INLINE bool verification_failed(AssertionSite& site, AssertionPlace const& place) {
    if (assertion_failed(site, TI_GLOBAL, place, String())) QX_BREAK();
    return false;
}

}  // namespace QX

#if QX_ASSERTS

#define QX_ASSERT_TEAM(team, condition, text)                                                      \
    do {                                                                                           \
        static QX::AssertionSite qx_site = {false, false};                                         \
        while (QX_UNLIKELY(!(condition))) {                                                        \
            QX::AssertionPlace const qx_place = {#condition, __FILE__, __LINE__};                  \
            if (!QX::assertion_failed(qx_site, team, qx_place, text)) break;                       \
            QX_BREAK();                                                                            \
        }                                                                                          \
    } while (false)

#define QX_VERIFY(condition)                                                                       \
    (static_cast<bool>(condition) || [](char const* qx_condition) {                                \
        static QX::AssertionSite qx_site = {false, false};                                         \
        return QX::verification_failed(qx_site, {qx_condition, __FILE__, __LINE__});               \
    }(#condition))

#else

#define QX_ASSERT_TEAM(team, condition, text) static_cast<void>(sizeof(!(condition)))
#define QX_VERIFY(condition) static_cast<bool>(condition)

#endif

#define QX_ASSERT(condition) QX_ASSERT_TEAM(QX::TI_GLOBAL, condition, QX::String())
