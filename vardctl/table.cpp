// Columns for people and for scripts.
#include "table.h"

#include "terminal_text.h"

#include <algorithm>

namespace Vardctl {

namespace {

std::string cell(const std::string& text, bool last) {
    if (text.empty()) {
        return "-";
    }
    std::string result;
    for (const char byte : harmless(text)) {
        result += byte == ' ' && !last ? std::string("\\x20") : std::string(1, byte);
    }
    return result;
}

} // namespace

void Table::add(const std::vector<std::string>& texts) {
    auto& row = rows_.emplace_back();
    for (size_t i = 0; i < columns_.size(); ++i) {
        row.push_back(cell(texts.at(i), i + 1 == columns_.size()));
    }
}

std::vector<std::string> Table::names() const {
    std::vector<std::string> result;
    for (const auto& column : columns_) {
        result.emplace_back(column.name);
    }
    return result;
}

std::string Table::line(const std::vector<std::string>& cells, const std::vector<size_t>& widths) const {
    std::string result;
    for (size_t i = 0; i < cells.size(); ++i) {
        const std::string padding(widths[i] - columns(cells[i]), ' ');
        const bool right = columns_[i].align == Align::right;
        const bool last = i + 1 == cells.size();
        result += (i > 0 ? " " : "") + (right ? padding + cells[i] : cells[i] + (last ? "" : padding));
    }
    return result + "\n";
}

std::string Table::layout(bool legend) const {
    auto lines = rows_;
    if (legend) {
        lines.insert(lines.begin(), names());
    }
    std::vector<size_t> widths(columns_.size());
    for (const auto& cells : lines) {
        for (size_t i = 0; i < cells.size(); ++i) {
            widths[i] = std::max(widths[i], columns(cells[i]));
        }
    }
    std::string result;
    for (const auto& cells : lines) {
        result += line(cells, widths);
    }
    return result;
}

} // namespace Vardctl
