#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace console {

/// Rows of text in columns that are as wide as their widest cell.
class table {
public:
    explicit table(const std::vector<std::string>& header);
    /// A row has one cell at least and no more than the header. The last cell of one that is shorter than the header may run over
    /// the columns behind it.
    void add(const std::vector<std::string>& row);
    [[nodiscard]] bool empty() const { return rows_.empty(); }
    void print(std::ostream& out) const;

private:
    std::vector<std::string> header_;
    std::vector<std::vector<std::string>> rows_;
};

}  // namespace console
