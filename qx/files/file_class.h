// file_class.h - the 63 kinds of files that the game writes, and the folders where they go.
//
// Each kind has a fixed extension and a fixed folder below the home folder of the user. With the
// profile folder P = "C:\Users\X\AppData\Roaming" and a plain command line:
//
//     write_class_extension(OWC_SAVE_GAME)        =>  L".save"
//     write_class_directory(OWC_SAVE_GAME)        =>  L"save_games\"
//     get_path(OWC_SAVE_GAME)                     =>  P "\The Tarnwick Guild\Brassmoor\save_games\"
//     create_file_name(OWC_SAVE_GAME, L"a")       =>  ... "\save_games\a.save"
//     create_file_name(OWC_SAVE_GAME, L"a.save")  =>  the same
//     create_file_name(OWC_SAVE_GAME, L"a.SAVE")  =>  ... "\save_games\a.SAVE.save"
//     create_file_name(OWC_MAPS, L"a")            =>  ... "\maps\a"   (no extension)
//
// The home folder. The application folder is "Brassmoor\", and the command line changes it; with
// the program in "c:\dev\trunk\game.exe":
//
//     "branch_profile" on the line  =>  "Brassmoor_trunk"
//     "-sptest"                     =>  "Brassmoor_autotest\"
//     both                          =>  "Brassmoor_trun_autotest\"  (a letter goes)
//
// The branch is the folder that the program stands in, or the one above the tree that holds
// "\src\.." or else "\binaries":
//
//     c:\dev\trunk\game.exe                  =>  trunk
//     c:\dev\trunk\binaries\game.exe         =>  dev
//     c:\dev\trunk\src\..\binaries\game.exe  =>  dev
//
// Below HKEY_CURRENT_USER the value "HomePath" of the key "Software\The Tarnwick Guild\" plus the
// application folder names the base. Without it the base is "The Tarnwick Guild\" in the roaming
// profile. Application folder and kind follow, joined by the system's own rules, which hold the
// whole to 259 characters. Each query makes the folders on disk.
//
// Failure: nothing raises but exhaustion. Without any profile folder the folder texts are empty. A
// null text faults.
// Threads: the folder cache is filled without a lock; all writers write the same.
#pragma once

#include <utility>

#include "qx/base/export.h"
#include "qx/text/string.h"

namespace QX {

// Numbers are fixed. Two kinds may share extension and folder.
enum OS_WRITE_CLASS : int {
    OWC_SAVE_GAME = 0,
    OWC_SAVE_GAME_MULTIPLAYER = 1,
    OWC_REPLAY = 2,
    OWC_LOG = 3,
    OWC_CSV_LOG = 4,
    OWC_AI_HISTORY_HTML = 5,
    OWC_AI_HISTORY_XML = 6,
    OWC_AI_LOG = 7,
    OWC_AI_WORLD_STATE = 8,
    OWC_SCRIPT = 9,
    OWC_BATTLE_EDITOR = 10,
    OWC_CINEMATIC_EDITOR = 11,
    OWC_SCREENSHOT = 12,
    OWC_MOVIE = 13,
    OWC_SOUND = 14,
    OWC_KEYS = 15,
    OWC_BATTLE_PREFERENCES = 16,
    OWC_ARMY_SETUP = 17,
    OWC_CRASH = 18,
    OWC_FX_CACHE = 19,
    OWC_EDITOR_FX_CACHE = 20,
    OWC_ADVICE = 21,
    OWC_AI_TECH = 22,
    OWC_UI_CACHE = 23,
    OWC_AI_SEQ_LOG = 24,
    OWC_CDIR_LOG = 25,
    OWC_CDIR_CSV = 26,
    OWC_AI_HIT_LOG = 27,
    OWC_PROFILE = 28,
    OWC_OFFICER_VARIANT = 29,
    OWC_OFFICER_VARIANT_2 = 30,
    OWC_MP_CAMPAIGN = 31,
    OWC_INIT_TIMING = 32,
    OWC_MAPS = 33,
    OWC_TEMP = 34,
    OWC_CAMERA_BOOKMARKS = 35,
    OWC_CONSOLE_SPOOL = 36,
    OWC_HTML_LOG = 37,
    OWC_VISIBILITY_DEBUG_CPU = 38,
    OWC_VISIBILITY_DEBUG_GPU = 39,
    OWC_AI_PERF_LOG = 40,
    OWC_AI_MEM_LOG = 41,
    OWC_BENCHMARK = 42,
    OWC_RESUME = 43,
    OWC_TILE_BATTLE_LOG = 44,
    OWC_CHAT = 45,
    OWC_AI_CSV = 46,
    OWC_TEXTURE_DB = 47,
    OWC_AI_DAT = 48,
    OWC_AI_DIPLOMACY = 49,
    OWC_EVENT_FEED = 50,
    OWC_REGISTRY = 51,
    OWC_GRAPHICS_LOG = 52,
    OWC_EVENT_FEED_TEXT = 53,
    OWC_EVENT_FEED_XML = 54,
    OWC_AUTH = 55,
    OWC_CRASH_STACK = 56,
    OWC_CRASH_DUMP = 57,
    OWC_LOG_PLAIN = 58,
    OWC_AUDIO_XML = 59,
    OWC_AUDIO_DAT = 60,
    OWC_AUDIO_CSV = 61,
    OWC_AUDIO_DEBUG_SETTINGS = 62,
};

// What a kind of file is for: the user's own, a picture of the game, a help in finding faults.
enum OS_FILE_CATEGORY : int {
    OFC_OTHER = 0,
    OFC_USER_DATA = 1,
    OFC_SCREENSHOT = 2,
    OFC_DIAGNOSTIC = 3,
};

namespace FileClass {

// The full folder of each kind once it was asked for, else empty.
QX_API extern wchar_t fc_paths[63][256];

// The product's folder name, "Brassmoor\".
QX_API extern wchar_t const s_app_name_w[11];
QX_API extern char const s_app_name_a[11];

// The row of a kind. The texts live as long as the library. Kinds are not checked.
QX_API wchar_t const* write_class_extension(OS_WRITE_CLASS kind);
QX_API wchar_t const* write_class_directory(OS_WRITE_CLASS kind);
QX_API OS_FILE_CATEGORY write_class_category(OS_WRITE_CLASS kind);

// The full folder of a kind, worked out afresh and made on disk; empty without a profile folder.
QX_API UniString get_path(OS_WRITE_CLASS kind);

// The same for the kind's folder followed by `sub`, which brings its own separators.
QX_API UniString get_directory(OS_WRITE_CLASS kind, UniString const& sub);
QX_API UniString get_directory(OS_WRITE_CLASS kind, wchar_t const* sub);

// The full folder, worked out on the first call alone: a change of the registry or of the command
// line is not seen afterwards. Lives as long as the library. A folder of more than 255 characters
// is worked out each time.
QX_API wchar_t const* app_directory(OS_WRITE_CLASS kind);

// The cached folder, `name`, and the kind's extension unless `name` ends in exactly that.
QX_API UniString create_file_name(OS_WRITE_CLASS kind, wchar_t const* name);
QX_API UniString create_file_name(OS_WRITE_CLASS kind, UniString const& name);

// The cached folder and the extension.
QX_API std::pair<wchar_t const*, wchar_t const*> owc_details(OS_WRITE_CLASS kind);

// Deletes the file that create_file_name names. Failures are not reported.
QX_API void delete_file(OS_WRITE_CLASS kind, wchar_t const* name);

// Deletes every file of the kind's folder that has the kind's extension: for a kind without one,
// every file. Folders inside stay. Does nothing where there is no such folder.
QX_API void nuke_directory(OS_WRITE_CLASS kind);

}  // namespace FileClass

}  // namespace QX
