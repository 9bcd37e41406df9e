#include "console/table.h"

#include <algorithm>
#include <iterator>
#include <ostream>

#include "console/shown_text.h"

namespace console {

namespace {

void print_row(std::ostream& out, const std::vector<std::string>& row, const std::vector<std::size_t>& widths) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
        line += row[i];
        if (i + 1 < row.size()) {
            line.append(widths[i] - columns_of(row[i]) + 2, ' ');
        }
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
}

std::vector<std::string> printable_cells(const std::vector<std::string>& row) {
    std::vector<std::string> shown;
    std::transform(row.begin(), row.end(), std::back_inserter(shown), printable_in_line);
    return shown;
}

}  // namespace

table::table(const std::vector<std::string>& header) : header_(printable_cells(header)) {}

void table::add(const std::vector<std::string>& row) {
    rows_.push_back(printable_cells(row));
}

void table::print(std::ostream& out) const {
    std::vector<std::size_t> widths(header_.size(), 0);
    const auto widen = [&](const std::vector<std::string>& row) {
        const std::size_t bound = row.size() < header_.size() ? row.size() - 1 : row.size();
        for (std::size_t i = 0; i < bound; ++i) {
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
