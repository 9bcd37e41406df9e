#pragma once

#include <tinyxml.h>

#include <algorithm>
#include <cstddef>

namespace test_support {

// The shape of what the parser made of a text, also of a text that it gave up on. Both recurse: only for shallow texts.

/// Depth of elements.
inline std::size_t parsed_depth(const TiXmlNode& node) {
    std::size_t deepest = 0;
    for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
        deepest = std::max(deepest, parsed_depth(*child) + (child->ToElement() != nullptr ? 1 : 0));
    }
    return deepest;
}

/// Attributes of the element that has the most.
inline std::size_t most_attributes(const TiXmlNode& node) {
    std::size_t most = 0;
    if (const TiXmlElement* element = node.ToElement()) {
        for (const TiXmlAttribute* attribute = element->FirstAttribute(); attribute != nullptr; attribute = attribute->Next()) {
            ++most;
        }
    }
    for (const TiXmlNode* child = node.FirstChild(); child != nullptr; child = child->NextSibling()) {
        most = std::max(most, most_attributes(*child));
    }
    return most;
}

}  // namespace test_support
