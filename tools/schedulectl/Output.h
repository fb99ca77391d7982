// Output: how schedulectl speaks, to people or (--json) to programs. Data goes to standard output, errors, warnings and
// progress to standard error. Every JSON text carries "schema". Main thread only.
#pragma once

#include "ExitStatus.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace tools {

struct OutputStyle {
    bool json = false;
    bool quiet = false;           // no "done" sentences, no warnings, no progress
    std::string colour = "auto";  // always, never
};

// The members of a JSON object, in no order.
using Value = std::variant<bool, int64_t, std::string, std::vector<std::string>>;
using Record = std::vector<std::pair<std::string_view, Value>>;

enum class Tone { Plain, Head, Good, Attention, Bad, Faint };

struct Cell {
    std::string text;
    Tone tone = Tone::Plain;
};

// One thing of a list: its cells for people, its members for programs. Only the one that is asked for need be there.
struct Row {
    std::vector<Cell> cells;
    Record record;
};

class Output {
public:
    explicit Output(OutputStyle style);

    // What was done or found out, in one sentence.
    void Answer(const std::string& sentence, Record members) const;
    // A list under a line of heads; in JSON an array of that name, beside `members`.
    void Table(const std::vector<std::string>& heads, std::vector<Row> rows, std::string_view arrayName,
               const Record& members = {}) const;
    static std::string JsonArray(std::string_view name, const std::vector<Row>& rows, const Record& members);
    // The same as lines for people, each with its end.
    std::string TableText(const std::vector<std::string>& heads, std::vector<Row> rows) const;
    // One thing, a line for each of its members: label, text.
    void Sheet(const std::vector<std::pair<std::string, Cell>>& lines, Record members) const;
    // One thing of a stream: out at once.
    void Event(const std::string& sentence, Record members) const;
    // A line each. As they are where no terminal could be steered by them, so that scripts can use them.
    void Names(const std::vector<std::string>& names) const;
    // Bytes as they are.
    void Raw(const std::string& bytes) const;

    // Says why, and gives `status` back. `members` as for Answer.
    ExitStatus Error(ExitStatus status, const std::string& sentence, Record members = {}) const;
    void Warning(const std::string& sentence) const;
    // A bar on a terminal; nothing elsewhere.
    void Progress(std::string_view what, size_t done, size_t all) const;

    bool IsJson() const { return style.json; }

private:
    std::string Toned(const std::string& text, Tone tone) const;

    OutputStyle style;
    bool hasColour;
};

// For a terminal: control characters, and those that turn the direction of what follows, as \xNN or \u{NNNN}; bytes
// that are no UTF-8 as \xNN.
std::string Printable(std::string_view text);

// Columns on a terminal that a printable text takes: wide characters take two, combining ones none.
size_t DisplayWidth(std::string_view text);

}  // namespace tools
