// window_messages_impl.h - the debugger line of one window message.
#pragma once

namespace QX {

// Writes "Window Message NAME 0xWPARAM 0xLPARAM" to the debugger; both parameters lose their
// upper 32 bits.
void log_window_message(unsigned int message, unsigned long long wparam, long long lparam);

}  // namespace QX
