#include "qx/app/application.h"

#include "qx/app/application_impl.h"
#include "qx/app/process.h"

namespace QX {

namespace {

bool focused_now = false;

}  // namespace

ApplicationPlatform::ApplicationPlatform(ApplicationInitialiser const& initialiser)
    : instance_(initialiser.instance) {}

HINSTANCE__* ApplicationPlatform::application_instance() const {
    return instance_;
}

Application::Application(ApplicationInitialiser const& initialiser)
    : ApplicationPlatform(initialiser) {}

Application::Application(Application const& other) = default;

Application& Application::operator=(Application const& other) = default;

Application::~Application() = default;

bool Application::process_message_queue() {
    return ApplicationPlatform::process_message_queue();
}

void Application::clear_message_queue() {
    ApplicationPlatform::clear_message_queue();
}

void Application::kill() {
    exit_process(0);
}

void on_app_focus_change(bool focused) {
    focused_now = focused;
}

bool app_has_focus() {
    return focused_now;
}

}  // namespace QX
