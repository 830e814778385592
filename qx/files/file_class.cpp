#include "qx/files/file_class.h"

#include "qx/files/file_class_impl.h"
#include "qx/files/filesystem.h"

namespace QX {

namespace FileClass {

wchar_t fc_paths[63][256] = {};

wchar_t const s_app_name_w[11] = L"Brassmoor\\";
char const s_app_name_a[11] = "Brassmoor\\";

namespace {

struct Row {
    wchar_t const* extension;
    wchar_t const* folder;
    OS_FILE_CATEGORY category;
};

// clang-format off
constexpr Row rows[] = {
    {L".save", L"save_games\\", OFC_USER_DATA},  // OWC_SAVE_GAME
    {L".save_multiplayer", L"save_games_multiplayer\\", OFC_USER_DATA},  // ..._MULTIPLAYER
    {L".replay", L"replays\\", OFC_USER_DATA},  // OWC_REPLAY
    {L".log.txt", L"logs\\", OFC_DIAGNOSTIC},  // OWC_LOG
    {L".csv", L"logs\\", OFC_DIAGNOSTIC},  // OWC_CSV_LOG
    {L".ai_history.html", L"logs\\campaign_ai\\", OFC_DIAGNOSTIC},  // OWC_AI_HISTORY_HTML
    {L".ai_history.xml", L"logs\\campaign_ai\\", OFC_DIAGNOSTIC},  // OWC_AI_HISTORY_XML
    {L".ai_log.xml", L"logs\\campaign_ai\\", OFC_DIAGNOSTIC},  // OWC_AI_LOG
    {L".ai_world_state.html", L"logs\\campaign_ai\\", OFC_DIAGNOSTIC},  // OWC_AI_WORLD_STATE
    {L".script.txt", L"scripts\\", OFC_USER_DATA},  // OWC_SCRIPT
    {L".battle_editor", L"editor\\", OFC_USER_DATA},  // OWC_BATTLE_EDITOR
    {L".cinematic_editor", L"editor\\", OFC_USER_DATA},  // OWC_CINEMATIC_EDITOR
    {L".screenshot.tga", L"screenshots\\", OFC_SCREENSHOT},  // OWC_SCREENSHOT
    {L".movie.avi", L"editor\\", OFC_OTHER},  // OWC_MOVIE
    {L".sound.wav", L"editor\\", OFC_OTHER},  // OWC_SOUND
    {L".keys.xml", L"custom_keys\\", OFC_USER_DATA},  // OWC_KEYS
    {L".battle_preferences", L"battle_preferences\\", OFC_USER_DATA},  // OWC_BATTLE_PREFERENCES
    {L".army_setup", L"army_setups\\", OFC_USER_DATA},  // OWC_ARMY_SETUP
    {L".crash", L"logs\\", OFC_DIAGNOSTIC},  // OWC_CRASH
    {L".fxc", L"fx_cache\\", OFC_OTHER},  // OWC_FX_CACHE
    {L".fxc", L"editor_fx_cache\\", OFC_OTHER},  // OWC_EDITOR_FX_CACHE
    {L".advice", L"advice_history\\", OFC_OTHER},  // OWC_ADVICE
    {L".ai_tech.txt", L"logs\\campaign_ai\\", OFC_DIAGNOSTIC},  // OWC_AI_TECH
    {L".ui_cache", L"ui_cache\\", OFC_OTHER},  // OWC_UI_CACHE
    {L".ai_seq_log.txt", L"logs\\campaign_ai\\", OFC_DIAGNOSTIC},  // OWC_AI_SEQ_LOG
    {L".cdir.txt", L"logs\\director\\", OFC_DIAGNOSTIC},  // OWC_CDIR_LOG
    {L".cdir.csv", L"logs\\director\\", OFC_DIAGNOSTIC},  // OWC_CDIR_CSV
    {L".ai_hit_log.txt", L"logs\\campaign_ai\\", OFC_DIAGNOSTIC},  // OWC_AI_HIT_LOG
    {L"", L"Profile\\", OFC_USER_DATA},  // OWC_PROFILE
    {L".officer.unit_variant", L"avatar\\", OFC_OTHER},  // OWC_OFFICER_VARIANT
    {L".officer.unit_variant", L"avatar\\", OFC_OTHER},  // OWC_OFFICER_VARIANT_2
    {L".mpcampaign", L"campaign_preferences\\", OFC_USER_DATA},  // OWC_MP_CAMPAIGN
    {L".csv", L"logs\\init_timing\\", OFC_DIAGNOSTIC},  // OWC_INIT_TIMING
    {L"", L"maps\\", OFC_OTHER},  // OWC_MAPS
    {L".temp", L"temp\\", OFC_OTHER},  // OWC_TEMP
    {L".camera_bookmarks", L"camera bookmarks\\", OFC_USER_DATA},  // OWC_CAMERA_BOOKMARKS
    {L".txt", L"console_spools\\", OFC_OTHER},  // OWC_CONSOLE_SPOOL
    {L".html", L"logs\\", OFC_DIAGNOSTIC},  // OWC_HTML_LOG
    {L".tga", L"logs\\battle_visibility_debug\\cpu\\", OFC_DIAGNOSTIC},  // OWC_VISIBILITY_DEBUG_CPU
    {L".png", L"logs\\battle_visibility_debug\\gpu\\", OFC_DIAGNOSTIC},  // OWC_VISIBILITY_DEBUG_GPU
    {L".ai_perf_log.txt", L"logs\\campaign_ai\\", OFC_DIAGNOSTIC},  // OWC_AI_PERF_LOG
    {L".ai_mem_log.csv", L"logs\\campaign_ai\\", OFC_DIAGNOSTIC},  // OWC_AI_MEM_LOG
    {L".txt", L"benchmarks\\", OFC_USER_DATA},  // OWC_BENCHMARK
    {L"", L"resume\\", OFC_OTHER},  // OWC_RESUME
    {L".tilebattle_log", L"battle_preferences\\", OFC_USER_DATA},  // OWC_TILE_BATTLE_LOG
    {L"", L"chat\\", OFC_OTHER},  // OWC_CHAT
    {L".csv", L"logs\\campaign_ai\\", OFC_OTHER},  // OWC_AI_CSV
    {L".txdb", L"texturedb\\", OFC_OTHER},  // OWC_TEXTURE_DB
    {L".dat", L"logs\\campaign_ai\\", OFC_DIAGNOSTIC},  // OWC_AI_DAT
    {L".csv", L"logs\\campaign_ai\\diplomacy\\", OFC_DIAGNOSTIC},  // OWC_AI_DIPLOMACY
    {L".eff", L"event_feed\\", OFC_USER_DATA},  // OWC_EVENT_FEED
    {L".reg", L"registry\\", OFC_USER_DATA},  // OWC_REGISTRY
    {L"", L"logs\\graphics\\", OFC_DIAGNOSTIC},  // OWC_GRAPHICS_LOG
    {L".txt", L"event_feed\\", OFC_DIAGNOSTIC},  // OWC_EVENT_FEED_TEXT
    {L".xml", L"event_feed\\", OFC_DIAGNOSTIC},  // OWC_EVENT_FEED_XML
    {L"", L"auth\\", OFC_USER_DATA},  // OWC_AUTH
    {L".stack.txt", L"crash_report\\", OFC_DIAGNOSTIC},  // OWC_CRASH_STACK
    {L".mdmp", L"crash_report\\", OFC_DIAGNOSTIC},  // OWC_CRASH_DUMP
    {L"", L"logs\\", OFC_DIAGNOSTIC},  // OWC_LOG_PLAIN
    {L".xml", L"logs\\audio\\", OFC_DIAGNOSTIC},  // OWC_AUDIO_XML
    {L".dat", L"logs\\audio\\", OFC_DIAGNOSTIC},  // OWC_AUDIO_DAT
    {L".csv", L"logs\\audio\\", OFC_DIAGNOSTIC},  // OWC_AUDIO_CSV
    {L".xml", L"scripts\\audio\\debug_settings\\", OFC_USER_DATA},  // OWC_AUDIO_DEBUG_SETTINGS
};
// clang-format on
static_assert(sizeof rows / sizeof *rows == sizeof fc_paths / sizeof *fc_paths);

// Folders too long for the cache. They are worked out each time and stand here for the caller.
wchar_t long_paths[sizeof rows / sizeof *rows][longest_home_folder + 1] = {};

void store(wchar_t* target, UniString const& text) {
    target[text.copy(target, text.length())] = 0;
}

bool ends_with(UniString const& text, UniString const& end) {
    if (text.length() < end.length()) return false;
    return text.compare(text.length() - end.length(), end.length(), end) == 0;
}

void delete_found(
    UniString const& path, UniString const& name, UniString const&, FileInf const&, void*) {
    Filesystem::remove((path + name).c_str());
}

}  // namespace

wchar_t const* write_class_extension(OS_WRITE_CLASS kind) {
    return rows[kind].extension;
}

wchar_t const* write_class_directory(OS_WRITE_CLASS kind) {
    return rows[kind].folder;
}

OS_FILE_CATEGORY write_class_category(OS_WRITE_CLASS kind) {
    return rows[kind].category;
}

UniString get_path(OS_WRITE_CLASS kind) {
    return make_home_folder(rows[kind].folder);
}

UniString get_directory(OS_WRITE_CLASS kind, UniString const& sub) {
    return make_home_folder(rows[kind].folder + sub);
}

UniString get_directory(OS_WRITE_CLASS kind, wchar_t const* sub) {
    return get_directory(kind, UniString(sub));
}

wchar_t const* app_directory(OS_WRITE_CLASS kind) {
    wchar_t* const cached = fc_paths[kind];
    if (cached[0]) return cached;
    UniString const folder = get_path(kind);
    bool const fits = folder.length() < sizeof fc_paths[0] / sizeof(wchar_t);
    wchar_t* const target = fits ? cached : long_paths[kind];
    store(target, folder);
    return target;
}

UniString create_file_name(OS_WRITE_CLASS kind, UniString const& name) {
    UniString const extension = rows[kind].extension;
    UniString const path = app_directory(kind) + name;
    return ends_with(name, extension) ? path : path + extension;
}

UniString create_file_name(OS_WRITE_CLASS kind, wchar_t const* name) {
    return create_file_name(kind, UniString(name));
}

std::pair<wchar_t const*, wchar_t const*> owc_details(OS_WRITE_CLASS kind) {
    return {app_directory(kind), rows[kind].extension};
}

void delete_file(OS_WRITE_CLASS kind, wchar_t const* name) {
    Filesystem::remove(create_file_name(kind, name).c_str());
}

void nuke_directory(OS_WRITE_CLASS kind) {
    wchar_t const* const folder = app_directory(kind);
    if (!folder[0]) return;  // an empty path would be the root of the drive
    UniString const pattern = L'*' + UniString(rows[kind].extension);
    Filesystem::enumerate(delete_found, folder, pattern.c_str(), nullptr, false);
}

}  // namespace FileClass

}  // namespace QX
