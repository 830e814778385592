// viewer.cpp - a whole host: own window class and loop, pictures out of a pack, keyboard and mouse.
//
//   viewer [PACK [KEY]] [--seconds N] [--screenshot FILE.tga]
//
//   left, right     the picture before, the next one      wheel, up, down   zoom
//   page up, down   the level before, the next one        drag              moves the picture
//   F11             full screen and back                  escape            ends
//
// Without a pack it shows a picture of its own. With --seconds it ends by itself; --screenshot
// then writes what the window shows. Exit codes: 0 good, 1 failed, 2 wrong arguments.
#include "examples/pictures.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <windows.h>

namespace {

using examples::Picture;
using View = QX::PixelAccessorDescriptor;

constexpr QX::Pixel8888 background = {40, 36, 32, 255};
constexpr int most_zoom = 5;  // powers of two
constexpr int least_zoom = -4;
constexpr unsigned int strip_gap = 8;  // between the levels shown at the right

struct Options {
    char const* pack = nullptr;
    unsigned short key = 0;
    double seconds = 0;  // 0: until the user ends it
    char const* screenshot = nullptr;
};

double now_seconds() {
    LARGE_INTEGER count, frequency;
    QueryPerformanceCounter(&count);
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(count.QuadPart) / static_cast<double>(frequency.QuadPart);
}

// --- Pictures and their levels -------------------------------------------------------------------

// The pictures of a pack, one of them decoded with all its levels.
class Album {
public:
    bool open(Options const& options) {
        if (!options.pack) return true;
        if (!pack_.open(options.pack, options.key)) return false;
        pack_.enumerate(note_name, &names_);
        std::sort(names_.begin(), names_.end());
        return !names_.empty();
    }

    // Moves by some pictures, going round at the ends. False if it can't be decoded.
    bool step(int by) {
        if (names_.empty()) {
            title_ = "a picture of its own";
            return draw_own();
        }
        int const count = static_cast<int>(names_.size());
        index_ = ((index_ + by) % count + count) % count;
        title_ = names_[index_];
        levels_.clear();
        return decode();
    }

    std::string const& title() const { return title_; }
    int level_count() const { return static_cast<int>(levels_.size()); }
    View level(int number) { return levels_[number]->pixel_accessor(); }

private:
    static void
    note_name(QX::MemPackFile const&, char const* name, unsigned int, unsigned int, void* user) {
        static_cast<std::vector<std::string>*>(user)->push_back(name);
    }

    bool decode() {
        char const* const name = title_.c_str();
        QX::TGAHeader header;
        Picture picture;
        if (!examples::decode(pack_.data(name), pack_.size(name), header, picture)) return false;
        make_levels(picture);
        return true;
    }

    bool draw_own() {
        if (!levels_.empty()) return true;
        Picture picture;
        picture.resize(300, 200);
        for (unsigned int y = 0; y < 200; ++y) {
            for (unsigned int x = 0; x < 300; ++x) {
                bool const dark = (x / 20 + y / 20) % 2 != 0;
                auto const blue = static_cast<unsigned char>(x * 255 / 299);
                auto const green = static_cast<unsigned char>(y * 255 / 199);
                picture.set_pixel(
                    x, y, {blue, green, static_cast<unsigned char>(dark ? 0x40 : 0xE0), 255});
            }
        }
        make_levels(picture);
        return true;
    }

    void make_levels(Picture& picture) {
        examples::each_level(picture, [this](View view, unsigned int width, unsigned int height) {
            view.width = width;
            view.height = height;
            levels_.push_back(std::make_unique<Picture>());
            levels_.back()->resize(width, height);
            levels_.back()->pixel_accessor().copy(view);
        });
    }

    QX::MemPackFile pack_;
    std::vector<std::string> names_;
    std::string title_;
    int index_ = 0;
    std::vector<std::unique_ptr<Picture>> levels_;  // the picture itself first
};

// --- The window's contents -----------------------------------------------------------------------

// What the user chose to see.
struct Look {
    int level = 0;
    int zoom = 0;  // a power of two
    float x = 0;   // how far the picture is from the middle, in the window's pixels
    float y = 0;
};

// Copies what lies inside the canvas, magnified without smoothing.
void draw_zoomed(View const& canvas, View const& picture, Look const& look) {
    double const scale = look.zoom >= 0 ? 1 << look.zoom : 1.0 / (1 << -look.zoom);
    double const left = (canvas.width - picture.width * scale) / 2 + look.x;
    double const top = (canvas.height - picture.height * scale) / 2 + look.y;
    for (unsigned int y = 0; y < canvas.height; ++y) {
        double const from_y = (y + 0.5 - top) / scale;
        if (from_y < 0 || from_y >= picture.height) continue;
        unsigned char const* const row =
            picture.data + static_cast<unsigned int>(from_y) * picture.stride;
        unsigned char* const to = canvas.data + y * canvas.stride;
        for (unsigned int x = 0; x < canvas.width; ++x) {
            double const from_x = (x + 0.5 - left) / scale;
            if (from_x < 0 || from_x >= picture.width) continue;
            std::memcpy(to + x * 4, row + static_cast<unsigned int>(from_x) * 4, 4);
        }
    }
}

// The smaller levels at their own size, one below the other at the right edge.
void draw_strip(Picture& canvas, Album& album) {
    unsigned int y = strip_gap;
    for (int i = 1; i < album.level_count(); ++i) {
        View const level = album.level(i);
        bool const fits = level.width + strip_gap <= canvas.width() / 3 &&
                          y + level.height + strip_gap <= canvas.height();
        if (!fits) continue;
        unsigned int const x = canvas.width() - strip_gap - level.width;
        canvas.pixel_accessor(x, y, level.width, level.height).copy(level);
        y += level.height + strip_gap;
    }
}

BITMAPINFO bitmap_of(unsigned int width, unsigned int height) {
    BITMAPINFO info = {};
    info.bmiHeader.biSize = sizeof info.bmiHeader;
    info.bmiHeader.biWidth = static_cast<LONG>(width);
    info.bmiHeader.biHeight = -static_cast<LONG>(height);  // top row first
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    return info;
}

// --- The host ------------------------------------------------------------------------------------

class Viewer final : public QX::QXWindow::EventHandler {
public:
    explicit Viewer(Options const& options) : options_(options), window_(this) {}

    int run();
    LRESULT handle(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam);

    // What the library calls.
    void get_min_max_info(QX::QXWindow const&, int& height, int& track_height) override {
        height = track_height = GetSystemMetrics(SM_CYSCREEN);
    }
    void activate_app(QX::QXWindow const&, bool active) override {
        QX::on_app_focus_change(active);
    }
    void activate(QX::QXWindow const&, bool) override {}
    bool resize(QX::QXWindow const&, unsigned int) override { return dirty_ = true; }
    void pause_rendering(QX::QXWindow const&, bool pause) override { paused_ = pause; }
    bool nc_hit_test(QX::QXWindow const&) override { return false; }
    bool sys_command(QX::QXWindow const&, unsigned int, unsigned int) override { return false; }
    void debug_key(QX::QXWindow const&, unsigned int, bool) override {}
    void lock_workstation(QX::QXWindow const&, bool locked) override { paused_ = locked; }

private:
    bool open_window(HINSTANCE instance);
    void loop();
    void press(QX::KEY_TYPE key);
    void take_mouse(QX::HardwareEvent const& event);
    void drag();
    void show_picture(int step);
    void show_level(int step);
    void zoom(int step);
    void toggle_full_screen();
    void paint(HWND hwnd);
    bool write_screenshot();
    void show_frame_time();

    Options options_;
    QX::QXWindow window_;
    Album album_;
    Look look_;
    Picture canvas_;
    bool dirty_ = true;
    bool paused_ = false;
    bool full_screen_ = false;
    QX::Rectangle windowed_place_;
    double frames_since_ = 0;
    int frames_ = 0;
};

Viewer* viewer = nullptr;  // the one of the process, for the system's and the timer's calls

LRESULT CALLBACK procedure(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam) {
    return viewer->handle(hwnd, message, wparam, lparam);
}

LRESULT Viewer::handle(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam) {
    if (window_.process_wnd_proc(message, wparam, lparam)) return 0;
    QX::HardwareEvent const event = {hwnd, message, wparam, lparam};
    if (QX::key_event(event).state == 1) press(QX::key_event(event).key);
    bool const of_mouse = message >= WM_MOUSEFIRST && message <= WM_MOUSELAST;
    if (of_mouse || message == WM_MOUSELEAVE) take_mouse(event);
    switch (message) {
    case WM_ERASEBKGND: return 1;
    case WM_PAINT: paint(hwnd); return 0;
    case WM_DESTROY: QX::QXWindow::post_quit_message(); return 0;
    default: return DefWindowProcW(hwnd, message, wparam, lparam);
    }
}

void Viewer::press(QX::KEY_TYPE key) {
    switch (key) {
    case QX::KEY_LEFT: return show_picture(-1);
    case QX::KEY_RIGHT:
    case QX::KEY_SPACE: return show_picture(1);
    case QX::KEY_PAGE_UP: return show_level(-1);
    case QX::KEY_PAGE_DOWN: return show_level(1);
    case QX::KEY_UP: return zoom(1);
    case QX::KEY_DOWN: return zoom(-1);
    case QX::KEY_F11: return toggle_full_screen();
    case QX::KEY_ESCAPE: return QX::QXWindow::post_quit_message();
    default: return;
    }
}

void Viewer::take_mouse(QX::HardwareEvent const& event) {
    unsigned int const width = std::max(1u, canvas_.width());
    unsigned int const height = std::max(1u, canvas_.height());
    if (QX::mouse_event(event, width, height, 0, false) != QX::MOUSE_MOUSEWHEEL) return;
    QX::HARDWARE_CONTROLLER_STATE const state;
    QX::MOUSE_STATE const& mouse = *state.mouse_state();
    zoom(QX::mouse_wheel_cyclical_difference(mouse.wheel, mouse.previous_wheel) > 0 ? 1 : -1);
}

// The button comes from the messages, the motion from the device.
void Viewer::drag() {
    QX::HARDWARE_CONTROLLER_STATE const state;
    QX::MOUSE_STATE const* const mouse = state.mouse_state();
    if (!mouse || !mouse->left_button || !mouse->inside_window) return;
    if (mouse->delta_x == 0 && mouse->delta_y == 0) return;
    look_.x += mouse->delta_x;
    look_.y -= mouse->delta_y;
    dirty_ = true;
}

void Viewer::show_picture(int step) {
    if (!album_.step(step))
        std::fprintf(
            stderr, "viewer: %s: not a picture that can be read\n", album_.title().c_str());
    look_ = {};
    dirty_ = true;
}

void Viewer::show_level(int step) {
    look_.level = std::clamp(look_.level + step, 0, std::max(0, album_.level_count() - 1));
    dirty_ = true;
}

void Viewer::zoom(int step) {
    look_.zoom = std::clamp(look_.zoom + step, least_zoom, most_zoom);
    dirty_ = true;
}

// The library keeps no place: the host does, and moves the window itself.
void Viewer::toggle_full_screen() {
    QX::Rectangle place = windowed_place_;
    if (full_screen_) {
        window_.set_windowed_style(true);
    } else {
        window_.get_window_rect(windowed_place_);
        window_.get_monitor_rect(place);
        window_.set_fullscreen_style();
    }
    full_screen_ = !full_screen_;
    window_.set_window_pos(
        full_screen_, place.left, place.top, place.right - place.left, place.bottom - place.top,
        SWP_FRAMECHANGED);
    dirty_ = true;
}

void Viewer::paint(HWND hwnd) {
    QX::Rectangle client;
    window_.get_display_rect(client);
    auto const width = static_cast<unsigned int>(client.right);
    auto const height = static_cast<unsigned int>(client.bottom);
    canvas_.resize(width, height);
    canvas_.pixel_accessor().clear(0, 0, width, height, background);
    if (look_.level < album_.level_count())
        draw_zoomed(canvas_.pixel_accessor(), album_.level(look_.level), look_);
    draw_strip(canvas_, album_);

    PAINTSTRUCT paint;
    HDC const dc = BeginPaint(hwnd, &paint);
    BITMAPINFO const info = bitmap_of(width, height);
    SetDIBitsToDevice(
        dc, 0, 0, width, height, 0, 0, 0, height, canvas_.data(), &info, DIB_RGB_COLORS);
    EndPaint(hwnd, &paint);
}

// What the window shows, read back from the screen.
bool Viewer::write_screenshot() {
    Picture shot;
    shot.resize(canvas_.width(), canvas_.height());
    BITMAPINFO const info = bitmap_of(shot.width(), shot.height());
    HDC const dc = GetDC(window_.get_hwnd());
    HDC const memory = CreateCompatibleDC(dc);
    void* bits = nullptr;
    HBITMAP const bitmap = CreateDIBSection(dc, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    HGDIOBJ const before = SelectObject(memory, bitmap);
    auto const width = static_cast<int>(shot.width());
    auto const height = static_cast<int>(shot.height());
    bool const copied = bitmap && BitBlt(memory, 0, 0, width, height, dc, 0, 0, SRCCOPY);
    GdiFlush();
    if (copied) std::memcpy(shot.data(), bits, shot.width() * shot.height() * 4ull);
    SelectObject(memory, before);
    DeleteObject(bitmap);
    DeleteDC(memory);
    ReleaseDC(window_.get_hwnd(), dc);
    return copied && shot.write_tga(options_.screenshot, QX::PIXEL_FORMAT_R8G8B8);
}

void Viewer::show_frame_time() {
    double const now = now_seconds();
    double const ms = frames_ > 0 ? 1000 * (now - frames_since_) / frames_ : 0;
    frames_since_ = now;
    frames_ = 0;
    char text[300];
    std::snprintf(
        text, sizeof text, "%.200s - level %d, zoom %+d - %.2f ms a frame", album_.title().c_str(),
        look_.level, look_.zoom, ms);
    SetWindowTextW(window_.get_hwnd(), QX::must_fix_string_widen(QX::String(text)).c_str());
}

bool Viewer::open_window(HINSTANCE instance) {
    WNDCLASSW description = {};
    description.style = CS_DBLCLKS | CS_HREDRAW | CS_VREDRAW;
    description.lpfnWndProc = procedure;
    description.hInstance = instance;
    description.hCursor = LoadCursorW(nullptr, MAKEINTRESOURCEW(32512));
    description.lpszClassName = L"QXViewer";
    if (!RegisterClassW(&description)) return false;

    QX::WindowInitialiser initialiser;
    initialiser.class_name = L"QXViewer";
    initialiser.title = L"QX viewer";
    initialiser.instance = instance;
    initialiser.fixed_style = true;
    initialiser.set_default_window_style(true, true);
    window_.create({40, 40, 840, 640}, initialiser, false);
    if (!window_.valid()) return false;
    window_.set_focus();
    return true;
}

// One pass a frame, until the pump tells of the quit message.
void Viewer::loop() {
    double const start = now_seconds();
    bool asked_to_end = false;
    while (!QX::Application::process_message_queue()) {
        if (QX::read_hardware_controllers()) drag();
        if (dirty_ && !paused_) {
            dirty_ = false;
            window_.invalidate();
            window_.update_window();
        }
        ++frames_;
        if (options_.seconds > 0 && !asked_to_end && now_seconds() - start >= options_.seconds) {
            asked_to_end = true;
            QX::QXWindow::post_quit_message();
        }
        Sleep(1);
    }
}

int Viewer::run() {
    QX::ApplicationInitialiser const initialiser = {GetModuleHandleW(nullptr)};
    QX::Application application(initialiser);
    if (!album_.open(options_)) {
        std::fprintf(
            stderr, "viewer: %s: not a pack with pictures, or the wrong key\n", options_.pack);
        return 1;
    }
    if (!open_window(application.application_instance())) {
        std::fprintf(stderr, "viewer: no window to be had\n");
        return 1;
    }
    QX::timeBeginPeriod(1);
    QX::acquire_hardware_controllers(application, window_);
    QX::set_timer(
        [](QX::QXWindow*, unsigned int, unsigned int, unsigned int) { viewer->show_frame_time(); },
        0, 250);
    show_picture(0);
    frames_since_ = now_seconds();
    loop();

    bool const good = !options_.screenshot || write_screenshot();
    if (!good) std::fprintf(stderr, "viewer: %s: cannot be written\n", options_.screenshot);
    show_frame_time();
    QX::release_hardware_controllers();
    QX::deallocate_timers_data_structures();
    QX::timeEndPeriod(1);
    window_.destroy();
    return good && album_.level_count() > 0 ? 0 : 1;
}

// --- Start ---------------------------------------------------------------------------------------

bool parse(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        std::string const word = argv[i];
        bool const last = i + 1 == argc;
        if (word == "--seconds" && !last)
            options.seconds = std::atof(argv[++i]);
        else if (word == "--screenshot" && !last)
            options.screenshot = argv[++i];
        else if (word.starts_with("-"))
            return false;
        else if (!options.pack)
            options.pack = argv[i];
        else
            options.key = static_cast<unsigned short>(std::strtoul(argv[i], nullptr, 0));
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, options)) {
        std::fprintf(stderr, "usage: viewer [PACK [KEY]] [--seconds N] [--screenshot FILE.tga]\n");
        return 2;
    }
    Viewer host(options);
    viewer = &host;
    return host.run();
}
