#include "qx/app/window.h"

namespace QX {

QXWindow::QXWindow() = default;

QXWindow::QXWindow(EventHandler* handler) : event_handler_(handler) {}

QXWindow::QXWindow(WindowInitialiser const&) {}

// The style stays behind: a copy serves events, not style changes.
QXWindow::QXWindow(QXWindow const& other) : QXWindowPlatform() {
    *this = other;
}

QXWindow& QXWindow::operator=(QXWindow const& other) {
    clone(other);
    event_handler_ = other.event_handler_;
    return *this;
}

bool QXWindow::operator==(QXWindow const& other) const {
    return test_equality(other);
}

QXWindow::EventHandler* QXWindow::event_handler() const {
    return event_handler_;
}

void QXWindow::set_event_handler(EventHandler& handler) {
    event_handler_ = &handler;
}

unsigned int QXWindow::style() const {
    return style_;
}

void QXWindow::get_min_max_info(int& max_height, int& max_track_height) {
    if (event_handler_) event_handler_->get_min_max_info(*this, max_height, max_track_height);
}

void QXWindow::activate_app(bool active) const {
    if (event_handler_) event_handler_->activate_app(*this, active);
}

void QXWindow::activate(bool active) const {
    if (event_handler_) event_handler_->activate(*this, active);
}

void QXWindow::pause_rendering(bool pause) const {
    if (event_handler_) event_handler_->pause_rendering(*this, pause);
}

bool QXWindow::resize(unsigned int kind) const {
    return event_handler_ && event_handler_->resize(*this, kind);
}

bool QXWindow::nc_hit_test() const {
    return event_handler_ && event_handler_->nc_hit_test(*this);
}

bool QXWindow::sys_command(unsigned int message, unsigned int command) const {
    return event_handler_ && event_handler_->sys_command(*this, message, command);
}

void QXWindow::debug_key(unsigned int key, bool control) const {
    if (event_handler_) event_handler_->debug_key(*this, key, control);
}

void QXWindow::lock_workstation(bool locked) const {
    if (event_handler_) event_handler_->lock_workstation(*this, locked);
}

}  // namespace QX
