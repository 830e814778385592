#include "qx/diagnostics/assertion_dialog_impl.h"

namespace QX::assertion_dialog {

namespace {

constexpr unsigned int dialog_style = 0x840;  // centred, with a font
constexpr unsigned short class_button = 0x80;
constexpr unsigned short class_static = 0x82;
constexpr unsigned int text_style = 0x50000080;
constexpr unsigned int first_button_style = 0x50030000;
constexpr unsigned int button_style = 0x50010000;
constexpr unsigned int disabled = 0x08000000;
constexpr unsigned short text_count = 3;
constexpr unsigned short button_count = 5;

struct Place {
    unsigned short x, y, width, height;
};

struct Button {
    VELLUM_MESSAGE_BOX_IDS id;
    unsigned int style;
    unsigned short x;
    wchar_t const* text;
};

constexpr Button button_rows[button_count] = {
    {VELLUM_MESSAGE_BOX_IDS::COPY_TEXT, first_button_style, 7, L"Copy Text"},
    {VELLUM_MESSAGE_BOX_IDS::ABORT, button_style, 61, L"Abort"},
    {VELLUM_MESSAGE_BOX_IDS::RETRY, button_style, 115, L"Retry"},
    {VELLUM_MESSAGE_BOX_IDS::IGNORE, button_style, 169, L"Ignore"},
    {VELLUM_MESSAGE_BOX_IDS::IGNORE_ALL, button_style, 223, L"Ignore All"},
};

class Writer {
public:
    void word(unsigned int value) { words_.push_back(static_cast<unsigned short>(value)); }

    void double_word(unsigned int value) {
        word(value & 0xFFFF);
        word(value >> 16);
    }

    void text(wchar_t const* text) {
        do {
            word(*text);
        } while (*text++ != 0);
    }

    void place(Place const& place) {
        word(place.x);
        word(place.y);
        word(place.width);
        word(place.height);
    }

    void item(
        unsigned int id, unsigned short kind, unsigned int style, Place const& where,
        wchar_t const* caption) {
        if (words_.size() % 2 != 0) word(0);
        double_word(style);
        double_word(0);
        place(where);
        word(id);
        word(0xFFFF);
        word(kind);
        text(caption);
        word(0);
    }

    Template take() { return std::move(words_); }

private:
    Template words_;
};

void write_header(Writer& out, wchar_t const* title, unsigned short items) {
    out.double_word(dialog_style);
    out.double_word(0);
    out.word(items);
    out.place({0, 0, 177, 211});
    out.word(0);  // no menu
    out.word(0);  // the default class
    out.text(title);
    out.word(8);
    out.text(L"Tahoma");
}

}  // namespace

Template build_template(Texts const& texts, Buttons buttons) {
    bool const has_buttons = buttons != Buttons::none;
    Writer out;
    write_header(out, texts.title.c_str(), text_count + (has_buttons ? button_count : 0));
    out.item(id_heading, class_static, text_style, {10, 6, 157, 29}, texts.heading.c_str());
    out.item(id_details, class_static, text_style, {10, 35, 157, 29}, texts.details.c_str());
    out.item(id_team_names, class_static, text_style, {10, 35, 157, 29}, texts.team_names.c_str());
    if (!has_buttons) return out.take();

    for (Button const& button : button_rows) {
        bool const off =
            button.id == VELLUM_MESSAGE_BOX_IDS::RETRY && buttons == Buttons::all_but_retry;
        out.item(
            static_cast<unsigned int>(button.id), class_button, button.style | (off ? disabled : 0),
            {button.x, 41, 50, 14}, button.text);
    }
    return out.take();
}

}  // namespace QX::assertion_dialog
