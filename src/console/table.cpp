#include "console/table.h"

#include <algorithm>
#include <ostream>

namespace console {

namespace {

/// Columns that a UTF-8 text takes: continuation bytes take none.
std::size_t columns_of(const std::string& text) {
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(), [](char unit) { return (static_cast<unsigned char>(unit) & 0xC0U) != 0x80U; }));
}

void print_row(std::ostream& out, const std::vector<std::string>& row, const std::vector<std::size_t>& widths) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
        line += row[i];
        line.append(widths[i] - columns_of(row[i]) + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
}

}  // namespace

void table::print(std::ostream& out) const {
    std::vector<std::size_t> widths(header_.size(), 0);
    auto widen = [&widths](const std::vector<std::string>& row) {
        widths.resize(std::max(widths.size(), row.size()), 0);
        for (std::size_t i = 0; i < row.size(); ++i) {
            widths[i] = std::max(widths[i], columns_of(row[i]));
        }
    };
    widen(header_);
    std::for_each(rows_.begin(), rows_.end(), widen);
    print_row(out, header_, widths);
    for (const auto& row : rows_) {
        print_row(out, row, widths);
    }
}

}  // namespace console
