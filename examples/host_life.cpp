// host_life.cpp - the life of a host: everything up, frames, everything down, in order.
//
//   host_life [PACK] [--frames N] [--until STEP] [--no-window]
//
// Runs N frames (1000) with the pump, timers, input, tasks on all threads and, where a pack is
// given, a read in flight. Nothing is left afterwards, and a host may live again, but
// without timers, which end for good.
//
// --until ends the process right after that step, with everything still up: heaps, application,
// window, names, scheduler, frames. A host may die early; the library's end bears it.
//
// Exit codes: 0 good, 1 something failed, 2 wrong arguments.
#include "qx/qx.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <windows.h>

namespace {

constexpr int window_side = 200;
char const* const steps[] = {"heaps", "application", "window", "names", "scheduler", "frames"};

struct Options {
    char const* pack = nullptr;
    int frames = 1000;
    char const* until = nullptr;
    bool window = true;
};

// --- The parts of a host -------------------------------------------------------------------------

class Events final : public QX::QXWindow::EventHandler {
public:
    void get_min_max_info(QX::QXWindow const&, int&, int&) override {}
    void activate_app(QX::QXWindow const&, bool active) override {
        QX::on_app_focus_change(active);
    }
    void activate(QX::QXWindow const&, bool) override {}
    bool resize(QX::QXWindow const&, unsigned int) override { return false; }
    void pause_rendering(QX::QXWindow const&, bool) override {}
    bool nc_hit_test(QX::QXWindow const&) override { return false; }
    bool sys_command(QX::QXWindow const&, unsigned int, unsigned int) override { return false; }
    void debug_key(QX::QXWindow const&, unsigned int, bool) override {}
    void lock_workstation(QX::QXWindow const&, bool) override {}
};

QX::QXWindow* open_window = nullptr;  // for the system's calls

LRESULT CALLBACK procedure(HWND hwnd, UINT message, WPARAM wparam, LPARAM lparam) {
    if (open_window && open_window->process_wnd_proc(message, wparam, lparam)) return 0;
    if (message == WM_DESTROY) return 0;
    return DefWindowProcW(hwnd, message, wparam, lparam);
}

void register_class() {
    WNDCLASSW description = {};
    description.lpfnWndProc = procedure;
    description.hInstance = GetModuleHandleW(nullptr);
    description.lpszClassName = L"QXHostLife";
    RegisterClassW(&description);
}

bool create_window(QX::QXWindow& window) {
    register_class();
    QX::WindowInitialiser initialiser;
    initialiser.class_name = L"QXHostLife";
    initialiser.title = L"host life";
    initialiser.instance = GetModuleHandleW(nullptr);
    open_window = &window;
    window.create({0, 0, window_side, window_side}, initialiser, false);
    return window.valid();
}

// Reads a pack's entries one after the other, one always in flight.
class Reader {
public:
    explicit Reader(char const* pack) {
        if (!pack || !pack_.open(pack, 0)) return;
        pack_.enumerate(note, this);
        unsigned int const sector = pack_.aligned();
        buffer_ = static_cast<char*>(
            QX::malloc_aligned(whole_sectors(largest_), sector, QX::HEAP_GENERAL));
    }

    ~Reader() {
        pack_.close();  // returns when nothing is in flight
        if (buffer_) QX::custom_free(reinterpret_cast<void**>(buffer_)[-1]);
    }

    Reader(Reader const&) = delete;
    Reader& operator=(Reader const&) = delete;

    int landed() const { return landed_; }

    // Starts the next read unless one is in flight; false if the system refuses one.
    bool keep_reading() {
        if (names_.empty() || in_flight_) return true;
        char const* const name = names_[next_++ % names_.size()].c_str();
        in_flight_ = true;
        return pack_.read(buffer_, name, 0, whole_sectors(pack_.size(name)), on_landed, this);
    }

private:
    static void
    note(QX::AsyncPackFile const&, char const* name, unsigned int, unsigned int size, void* user) {
        auto& reader = *static_cast<Reader*>(user);
        reader.names_.push_back(name);
        if (size > reader.largest_) reader.largest_ = size;
    }

    // On this thread, in its alertable wait.
    static void on_landed(QX::AsyncPackFile&, void* user) {
        auto& reader = *static_cast<Reader*>(user);
        reader.in_flight_ = false;
        ++reader.landed_;
    }

    unsigned int whole_sectors(unsigned int size) const {
        unsigned int const sector = pack_.aligned();
        return (size + sector - 1) / sector * sector;
    }

    QX::AsyncPackFile pack_;
    std::vector<std::string> names_;
    std::size_t next_ = 0;
    unsigned int largest_ = 0;
    char* buffer_ = nullptr;
    bool in_flight_ = false;
    int landed_ = 0;
};

// The work of one frame: strings, names and blocks on several threads, a part on the main thread.
struct FrameWork {
    QX::AtomicInt32Platform done;

    void run(int frame) {
        task::Counter left(4);
        for (int part = 0; part < 4; ++part) {
            auto const mask =
                part == 0 ? task::ThreadMask::main_thread : task::ThreadMask::any_thread;
            task::spawn(
                task::FiberMode::fiberful, mask, task::Priority::normal,
                [this, frame, part, &left] {
                    auto const text = QX::String::format("textures\\%d\\%d.tga", frame % 8, part);
                    QX::FileName const name(text);
                    if (!name.empty()) done.inc();
                    left.internal_decrement();
                });
        }
        task::run_main_thread_tasks();
        left.wait();
    }
};

// --- A life --------------------------------------------------------------------------------------

// Ends the process here if it is to die after this step.
void passed(char const* step, Options const& options) {
    if (!options.until || std::strcmp(step, options.until) != 0) return;
    std::printf("ends after: %s\n", step);
    std::fflush(stdout);
    std::exit(0);
}

bool run_frames(Options const& options) {
    Reader reader(options.pack);
    FrameWork work;
    static int ticks;
    ticks = 0;
    QX::set_timer([](QX::QXWindow*, unsigned int, unsigned int, unsigned int) { ++ticks; }, 0, 10);
    bool good = true;
    for (int frame = 0; good && frame < options.frames; ++frame) {
        if (QX::Application::process_message_queue()) break;
        QX::read_hardware_controllers();
        work.run(frame);
        good = reader.keep_reading();
        SleepEx(0, TRUE);
    }
    passed("frames", options);
    std::printf(
        "%d frames: %d tasks, %d reads, %d timer ticks\n", options.frames, work.done.get(),
        reader.landed(), ticks);
    return good && work.done.get() == 4 * options.frames;
}

bool live(Options const& options) {
    bool good = QX::init_heaps();
    passed("heaps", options);

    QX::ApplicationInitialiser const initialiser = {GetModuleHandleW(nullptr)};
    QX::Application application(initialiser);
    passed("application", options);

    Events events;
    QX::QXWindow window(&events);
    if (options.window) {
        good = create_window(window) && good;
        QX::acquire_hardware_controllers(application, window);
    }
    passed("window", options);

    QX::FileName const first("host.cfg");
    std::printf(
        "layout: %s\n",
        QX::SearchPathCollection::search_paths().release() ? "installed" : "development");
    passed("names", options);

    good = task::initialize(nullptr, 0, 16) > 0 && good;
    passed("scheduler", options);

    good = run_frames(options) && good;

    task::terminate();
    QX::release_hardware_controllers();
    QX::deallocate_timers_data_structures();
    QX::destroy_filesystem();
    if (options.window) window.destroy();
    open_window = nullptr;
    return good;
}

bool known_step(char const* name) {
    for (char const* const step : steps)
        if (std::strcmp(step, name) == 0) return true;
    return false;
}

bool parse(int argc, char** argv, Options& options) {
    for (int i = 1; i < argc; ++i) {
        std::string const word = argv[i];
        bool const last = i + 1 == argc;
        if (word == "--frames" && !last)
            options.frames = std::atoi(argv[++i]);
        else if (word == "--until" && !last && known_step(argv[i + 1]))
            options.until = argv[++i];
        else if (word == "--no-window")
            options.window = false;
        else if (!word.starts_with("-") && !options.pack)
            options.pack = argv[i];
        else
            return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    Options options;
    if (!parse(argc, argv, options)) {
        std::fprintf(stderr, "usage: host_life [PACK] [--frames N] [--until STEP] [--no-window]\n");
        return 2;
    }
    return live(options) ? 0 : 1;
}
