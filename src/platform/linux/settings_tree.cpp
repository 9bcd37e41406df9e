#include "platform/linux/settings_tree.h"

#include <algorithm>
#include <utility>

#include "foundation/text/unicode.h"

namespace platform::linux_os {

namespace {

bool is_digit(char16_t unit) {
    return unit >= u'0' && unit <= u'9';
}

/// The run of digits at the start of a text, without the zeros in front.
std::u16string_view number_at(std::u16string_view text, std::size_t& length) {
    length = 0;
    while (length < text.size() && is_digit(text[length])) {
        ++length;
    }
    const std::size_t zeros = std::min(text.substr(0, length).find_first_not_of(u'0'), length);
    return text.substr(zeros, length - zeros);
}

/// Below, equal to or above 0, numbers by their value; 0 also for names that differ in zeros in front of numbers.
int compare_by_value(std::u16string_view left, std::u16string_view right) {
    while (!left.empty() && !right.empty()) {
        if (is_digit(left.front()) && is_digit(right.front())) {
            std::size_t left_length = 0;
            std::size_t right_length = 0;
            const std::u16string_view left_number = number_at(left, left_length);
            const std::u16string_view right_number = number_at(right, right_length);
            if (left_number.size() != right_number.size()) {
                return left_number.size() < right_number.size() ? -1 : 1;
            }
            if (const int order = left_number.compare(right_number)) {
                return order;
            }
            left.remove_prefix(left_length);
            right.remove_prefix(right_length);
            continue;
        }
        const char16_t left_unit = text::unicode::to_lower(left.front());
        const char16_t right_unit = text::unicode::to_lower(right.front());
        if (left_unit != right_unit) {
            return left_unit < right_unit ? -1 : 1;
        }
        left.remove_prefix(1);
        right.remove_prefix(1);
    }
    return left.empty() ? (right.empty() ? 0 : -1) : 1;
}

}  // namespace

bool name_order::operator()(std::u16string_view left, std::u16string_view right) const {
    if (const int order = compare_by_value(left, right)) {
        return order < 0;
    }
    return std::lexicographical_compare(left.begin(), left.end(), right.begin(), right.end(), [](char16_t a, char16_t b) {
        return text::unicode::to_lower(a) < text::unicode::to_lower(b);
    });
}

std::vector<std::u16string> path_components(std::u16string_view path) {
    std::vector<std::u16string> parts;
    while (!path.empty()) {
        const std::size_t end = std::min(path.find(u'\\'), path.size());
        if (end > 0) {
            parts.emplace_back(path.substr(0, end));
        }
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return parts;
}

const settings_key* find_key(const settings_key& root, const std::vector<std::u16string>& path) {
    const settings_key* at = &root;
    for (const std::u16string& part : path) {
        const auto child = at->keys.find(part);
        if (child == at->keys.end()) {
            return nullptr;
        }
        at = &child->second;
    }
    return at;
}

settings_key& make_key(settings_key& root, const std::vector<std::u16string>& path) {
    settings_key* at = &root;
    for (const std::u16string& part : path) {
        at = &at->keys.try_emplace(part).first->second;
    }
    return *at;
}

void remove_key(settings_key& root, const std::vector<std::u16string>& path) {
    settings_key* at = &root;
    for (std::size_t depth = 0; depth < path.size(); ++depth) {
        const auto child = at->keys.find(path[depth]);
        if (child == at->keys.end()) {
            return;
        }
        if (depth + 1 == path.size()) {
            at->keys.erase(child);
            return;
        }
        at = &child->second;
    }
}

settings_value text_value(std::uint32_t type, std::u16string_view text) {
    settings_value value{type, {}};
    value.data.reserve((text.size() + 1) * 2);
    const auto put = [&value](char16_t unit) {
        value.data.push_back(static_cast<std::uint8_t>(unit & 0xFF));
        value.data.push_back(static_cast<std::uint8_t>(unit >> 8));
    };
    std::for_each(text.begin(), text.end(), put);
    put(u'\0');
    return value;
}

std::u16string value_text(const settings_value& value) {
    std::u16string text;
    for (std::size_t at = 0; at + 1 < value.data.size(); at += 2) {
        const auto unit = static_cast<char16_t>(value.data[at] | (value.data[at + 1] << 8));
        if (unit == u'\0') {
            break;
        }
        text.push_back(unit);
    }
    return text;
}

}  // namespace platform::linux_os
