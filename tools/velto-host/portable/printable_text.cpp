#include "velto-host/portable/printable_text.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace velto::host {
namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD"; // U+FFFD

// The number of bytes of a UTF-8 character with this first byte; 0 if no character begins with it.
size_t LengthOf(unsigned first)
{
    struct Range {
        unsigned below;
        size_t length;
    };
    constexpr std::array<Range, 5> ranges{{{0x80, 1}, {0xC2, 0}, {0xE0, 2}, {0xF0, 3}, {0xF5, 4}}};
    const auto *const range =
        std::find_if(ranges.begin(), ranges.end(), [first](const Range &each) { return first < each.below; });
    return range == ranges.end() ? 0 : range->length;
}

// The number of bytes of the UTF-8 character at the beginning of `text`; 0 if there is none.
size_t CharacterLength(std::string_view text)
{
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned first = byte(0);
    const size_t length = LengthOf(first);
    if (length > text.size()) {
        return 0;
    }
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) {
            return 0;
        }
    }
    const unsigned second = length > 1 ? byte(1) : 0;
    const bool isOverlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool isNoCharacter = (first == 0xED && second > 0x9F) || (first == 0xF4 && second > 0x8F);
    return isOverlong || isNoCharacter ? 0 : length;
}

// Whether this UTF-8 character is one of U+0000 to U+001F and U+007F to U+009F.
bool IsControl(std::string_view character)
{
    const auto first = static_cast<unsigned char>(character[0]);
    return character.size() == 1 ? first < 0x20 || first == 0x7F
                                 : first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

} // namespace

std::string PrintableText(std::string_view text)
{
    std::string out;
    while (!text.empty()) {
        const size_t length = CharacterLength(text);
        const std::string_view character = text.substr(0, length);
        out += length == 0 || IsControl(character) ? replacement : character;
        text.remove_prefix(std::max<size_t>(length, 1));
    }
    return out;
}

} // namespace velto::host
