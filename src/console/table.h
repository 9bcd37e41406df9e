#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace console {

/// Rows of text in columns that are as wide as their widest cell.
class table {
public:
    explicit table(std::vector<std::string> header) : header_(std::move(header)) {}
    /// A row may be shorter than the header.
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    [[nodiscard]] bool empty() const { return rows_.empty(); }
    void print(std::ostream& out) const;

private:
    std::vector<std::string> header_;
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace console
