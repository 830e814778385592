#include "qx/app/application.h"

#include <gtest/gtest.h>

#include "qx/app/window.h"
#include "qx/base/windows.h"
#include "tests/app/host.h"
#include "tests/harness/stand_in.h"

#include <type_traits>
#include <vector>

namespace {

using Messages = std::vector<unsigned int>;

Messages dispatched = test::roomy<unsigned int>();
LRESULT(WINAPI* system_dispatch)(MSG const*);

LRESULT WINAPI note_dispatch(MSG const* message) {
    dispatched.push_back(message->message);
    return system_dispatch(message);
}

// Posts to the thread's own queue and pumps once, with each dispatch noted.
class MessageLoop : public testing::Test {
protected:
    MessageLoop() : dispatch_("DispatchMessageW", note_dispatch) {
        system_dispatch = reinterpret_cast<decltype(system_dispatch)>(dispatch_.original());
        dispatched.clear();
        MSG message;
        PeekMessageW(&message, nullptr, 0, 0, PM_NOREMOVE);  // makes the queue
    }

    static void post(Messages const& messages) {
        for (unsigned int message : messages)
            PostThreadMessageW(GetCurrentThreadId(), message, 0, 0);
    }

    static bool pump() {
        dispatched.clear();
        return QX::Application::process_message_queue();
    }

private:
    test::StandIn dispatch_;
};

TEST_F(MessageLoop, quit_message_is_dispatched_and_then_noticed) {
    QX::QXWindow::post_quit_message();
    post({WM_APP, WM_APP + 2, WM_APP + 1});
    EXPECT_TRUE(pump());
    EXPECT_EQ(dispatched, (Messages{WM_APP, WM_APP + 2, WM_APP + 1, WM_QUIT}));
    EXPECT_FALSE(pump());
    EXPECT_EQ(dispatched, Messages{});
    post({WM_QUIT, WM_APP});
    EXPECT_TRUE(pump());
    EXPECT_EQ(dispatched, Messages{WM_QUIT});
    EXPECT_FALSE(pump());
    EXPECT_EQ(dispatched, Messages{WM_APP});
}

TEST_F(MessageLoop, gesture_stops_the_pump_before_the_rest) {
    post({WM_APP, 0x119, WM_QUIT});
    EXPECT_FALSE(pump());
    EXPECT_EQ(dispatched, (Messages{WM_APP, 0x119}));
    EXPECT_TRUE(pump());
    EXPECT_EQ(dispatched, Messages{WM_QUIT});
}

// --- Clearing ------------------------------------------------------------------------------------

int peeks = 0;
int messages_left = 0;

BOOL WINAPI check_peek(MSG* message, HWND window, UINT first, UINT last, UINT flags) {
    EXPECT_EQ(message, nullptr);
    EXPECT_EQ(window, nullptr);
    EXPECT_EQ(first | last, 0u);
    EXPECT_EQ(flags, UINT{PM_REMOVE});
    ++peeks;
    return messages_left-- > 0;
}

TEST_F(MessageLoop, clearing_removes_without_a_record_until_nothing_is_found) {
    post({WM_APP, WM_APP + 1});
    QX::Application::clear_message_queue();  // how much goes is the system's affair
    EXPECT_FALSE(pump());
    EXPECT_LT(dispatched.size(), 2u);
    dispatched.clear();

    test::StandIn const call("PeekMessageW", check_peek);
    ASSERT_TRUE(call.found());
    for (auto clear :
         {QX::Application::clear_message_queue, QX::ApplicationPlatform::clear_message_queue}) {
        peeks = 0;
        messages_left = 3;
        clear();
        EXPECT_EQ(peeks, 4);
    }
    EXPECT_EQ(dispatched, Messages{});
}

// --- The object ----------------------------------------------------------------------------------

TEST(Application, keeps_the_instance_and_copies_nothing_else) {
    auto const handle = reinterpret_cast<HINSTANCE>(0x1230);
    QX::Application const first(QX::ApplicationInitialiser{handle});
    QX::Application second(QX::ApplicationInitialiser{});
    EXPECT_EQ(second.application_instance(), nullptr);
    second = first;
    QX::Application const third(second);
    EXPECT_EQ(third.application_instance(), handle);
    EXPECT_EQ(sizeof(QX::Application), 2 * sizeof(void*));
    EXPECT_FALSE(std::is_polymorphic_v<QX::ApplicationPlatform>);
}

}  // namespace
