// Columns for people and for scripts.
#pragma once

#include <string>
#include <vector>

namespace Vardctl {

/// Rows of texts in aligned columns.
class Table {
public:
    /// At which side of its column a text stands.
    enum class Align { left, right };
    /// A column with its name, whose text must outlive the table.
    struct Column {
        const char* name;
        Align align = Align::left;
    };

    /// A table without rows.
    explicit Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

    /// Adds a row, one text for each column. The texts are made harmless, an empty one becomes "-", and blanks in any
    /// but the last column \x20, so that scripts can count columns.
    void add(const std::vector<std::string>& texts);
    /// All lines, under a line of the columns' names when `legend` is true.
    [[nodiscard]] std::string layout(bool legend) const;

private:
    [[nodiscard]] std::vector<std::string> names() const;
    [[nodiscard]] std::string line(const std::vector<std::string>& cells, const std::vector<size_t>& widths) const;

    std::vector<Column> columns_;
    std::vector<std::vector<std::string>> rows_;
};

} // namespace Vardctl
