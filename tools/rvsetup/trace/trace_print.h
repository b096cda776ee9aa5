#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ravlo {

/// What a line is about, as far as its colour goes.
enum class LineKind { Plain, Failure, Warning, Pipe, Gate, Identity };

LineKind KindOfMessage(std::string_view message) noexcept;

/// The tags that lines of the module begin with.
const std::vector<std::string>& KnownTags();

/// Which lines to show: those whose tag is one of `tags`, in whatever case, or one of `tags` with an operation behind a
/// dot. No tags means all lines.
class TagFilter {
public:
    explicit TagFilter(const std::vector<std::string>& tags);

    bool Accepts(std::string_view message) const;
    bool AcceptsAll() const noexcept { return m_tags.empty(); }

private:
    std::vector<std::string> m_tags;  ///< upper case
};

/// Whether anything of a line of the log passes the filter.
bool PassesFilter(std::string_view line, const TagFilter& filter);

/// How lines are shown.
struct PrintStyle {
    bool json = false;
    bool colour = false;
};

/// One line of the log as it is shown, line end included; empty when the filter holds it back. A line that is no line
/// of the module (torn, or foreign) is shown as it stands while no filter is set.
std::string ShownLine(std::string_view line, const TagFilter& filter, const PrintStyle& style);

}  // namespace ravlo
