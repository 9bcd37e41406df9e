#pragma once

#include <cstdint>
#include <functional>
#include <span>

/// Decoding of READ ELEMENT STATUS data (SMC-3 clause 6.10), as far as all readers share it.

/// One element status page.
struct element_status_page_t {
    std::uint8_t element_type = 0;
    bool primary_volume_tag = false;
    std::uint16_t descriptor_length = 0;

    /// Bytes that the volume tag takes in each descriptor.
    [[nodiscard]] std::uint16_t tag_length() const { return primary_volume_tag ? 36 : 0; }
};

/// Number of elements that the header names.
[[nodiscard]] std::uint16_t ElementsAvailable(std::span<const std::uint8_t> data);

/// Takes one descriptor: the bytes of it that are there.
using element_descriptor_visitor = std::function<void(const element_status_page_t&, std::span<const std::uint8_t>)>;

/// Walks pages and their descriptors until the elements that the header names have been seen; a page is always walked to its
/// end. Throws when a page's descriptor length is zero, and `std::out_of_range` when a descriptor starts behind the data: the
/// lengths can't be believed then.
void WalkElementStatus(std::span<const std::uint8_t> data, const element_descriptor_visitor& visit);
