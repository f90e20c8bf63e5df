#include "logging/utf8.h"

#include <cstdint>

namespace logging {
namespace {

constexpr char32_t replacement = 0xFFFD;

bool IsHighSurrogate(char32_t unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool IsLowSurrogate(char32_t unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

char32_t FirstUnit(std::wstring_view text)
{
    // wchar_t is signed on some platforms; a negative value becomes one above U+10FFFF.
    using Unit = std::conditional_t<sizeof(wchar_t) == 2, std::uint16_t, std::uint32_t>;
    return static_cast<Unit>(text.front());
}

// Removes the first code point of `text` and returns it.
char32_t TakeCodePoint(std::wstring_view &text)
{
    const char32_t unit = FirstUnit(text);
    text.remove_prefix(1);
    if (IsHighSurrogate(unit) && !text.empty()) {
        const char32_t next = FirstUnit(text);
        if (IsLowSurrogate(next)) {
            text.remove_prefix(1);
            return 0x10000 + ((unit & 0x3FF) << 10) + (next & 0x3FF);
        }
    }
    const bool isCharacter = unit <= 0x10FFFF && !IsHighSurrogate(unit) && !IsLowSurrogate(unit);
    return isCharacter ? unit : replacement;
}

void AppendHex(std::string &out, char32_t value, int digits)
{
    for (int shift = 4 * (digits - 1); shift >= 0; shift -= 4) {
        out += "0123456789ABCDEF"[(value >> shift) & 0xF];
    }
}

// Appends the escape of a code point. Returns false, without appending, if it needs none.
bool AppendEscape(std::string &out, char32_t code)
{
    switch (code) {
    case U'\n':
        out += "\\n";
        return true;
    case U'\r':
        out += "\\r";
        return true;
    case U'\t':
        out += "\\t";
        return true;
    case 0x2028: // line separator
    case 0x2029: // paragraph separator
        out += "\\u";
        AppendHex(out, code, 4);
        return true;
    default:
        break;
    }
    if (code < 0x20 || (code >= 0x7F && code < 0xA0)) {
        out += "\\x";
        AppendHex(out, code, 2);
        return true;
    }
    return false;
}

void AppendUtf8(std::string &out, char32_t code)
{
    const auto tail = [code](int shift) { return static_cast<char>(0x80 | ((code >> shift) & 0x3F)); };
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += tail(0);
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += tail(6);
        out += tail(0);
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += tail(12);
        out += tail(6);
        out += tail(0);
    }
}

} // namespace

std::string ToLogText(std::wstring_view message, std::size_t maxBytes)
{
    std::string text;
    while (!message.empty()) {
        const std::size_t before = text.size();
        const char32_t code = TakeCodePoint(message);
        if (!AppendEscape(text, code)) {
            AppendUtf8(text, code);
        }
        if (text.size() > maxBytes) {
            text.resize(before);
            AppendUtf8(text, 0x2026); // an ellipsis
            break;
        }
    }
    return text;
}

} // namespace logging
