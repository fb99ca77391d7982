#include "Output.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <unistd.h>

namespace tools {

namespace {

constexpr int kSchema = 1;
constexpr size_t kGap = 2;  // blanks between columns

void PrintLine(FILE* stream, const std::string& line) {
    if (stream == stderr) std::fflush(stdout);  // in the order in which it was said
    std::fwrite(line.data(), 1, line.size(), stream);
    std::fputc('\n', stream);
}

nlohmann::json ToJson(const Value& value) {
    return std::visit([](const auto& one) { return nlohmann::json(one); }, value);
}

nlohmann::json ToJson(const Record& record) {
    nlohmann::json object = nlohmann::json::object();
    for (const auto& [key, value] : record) object[std::string(key)] = ToJson(value);
    return object;
}

std::string JsonText(Record members) {
    members.emplace_back("schema", int64_t{kSchema});
    return ToJson(members).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

// Of this thread, as long as it lives: the program's own character type stays the C locale's.
class Utf8Locale {
public:
    Utf8Locale() : before(uselocale(Own())) {}
    ~Utf8Locale() { uselocale(before); }
    Utf8Locale(const Utf8Locale&) = delete;
    Utf8Locale& operator=(const Utf8Locale&) = delete;

private:
    static locale_t Own() {
        static const locale_t locale = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
        return locale;  // null: uselocale changes nothing
    }

    locale_t before;
};

bool IsPlain(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
}

// The character at the front of `text`, taken off it; none for a byte that begins none, which is taken off, too.
bool TakeCharacter(std::string_view& text, wchar_t& character) {
    std::mbstate_t state{};
    const size_t length = std::mbrtowc(&character, text.data(), text.size(), &state);
    const bool isOne = length != static_cast<size_t>(-1) && length != static_cast<size_t>(-2) && length != 0;
    text.remove_prefix(isOne ? length : 1);
    return isOne;
}

// Those that turn the direction of the text behind them, or hide in it.
bool TurnsDirection(wchar_t c) {
    return c == 0x061C || (c >= 0x200E && c <= 0x200F) || (c >= 0x202A && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

bool IsControl(wchar_t c) {
    return c < 0x20 || (c >= 0x7F && c < 0xA0) || c == 0x2028 || c == 0x2029;
}

std::string Hex(uint32_t value, int digits) {
    char text[16];
    return {text, static_cast<size_t>(std::snprintf(text, sizeof text, "%0*x", digits, value))};
}

}  // namespace

Output::Output(OutputStyle asked) : style(std::move(asked)), hasColour(style.colour == "always") {
    const char* const noColour = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    if (style.colour == "auto")
        hasColour =
            isatty(STDOUT_FILENO) && !(noColour && *noColour) && terminal && std::string_view(terminal) != "dumb";
}

std::string Output::Toned(const std::string& text, Tone tone) const {
    constexpr const char* codes[] = {"", "1", "32", "33", "31", "2"};
    if (!hasColour || tone == Tone::Plain || text.empty()) return text;
    return std::string("\033[") + codes[static_cast<size_t>(tone)] + "m" + text + "\033[0m";
}

void Output::Answer(const std::string& sentence, Record members) const {
    if (style.json)
        PrintLine(stdout, JsonText(std::move(members)));
    else if (!style.quiet)
        PrintLine(stdout, Printable(sentence));
}

std::string Output::TableText(const std::vector<std::string>& heads, std::vector<Row> rows) const {
    Row& head = *rows.emplace(rows.begin());
    for (const std::string& text : heads) head.cells.push_back({text, Tone::Head});
    std::vector<size_t> widths(heads.size());
    for (Row& row : rows)
        for (size_t i = 0; i < row.cells.size(); i++) {
            std::string& text = row.cells[i].text;
            if (!IsPlain(text)) text = Printable(text);
            widths[i] = std::max(widths[i], DisplayWidth(text));
        }
    std::string text;
    for (const Row& row : rows) {
        size_t blanks = 0;
        for (size_t i = 0; i < row.cells.size(); i++) {
            const Cell& cell = row.cells[i];
            if (!cell.text.empty()) {
                text.append(std::exchange(blanks, 0), ' ');
                text += Toned(cell.text, cell.tone);
            }
            blanks += widths[i] - DisplayWidth(cell.text) + kGap;
        }
        text += '\n';
    }
    return text;
}

void Output::Table(const std::vector<std::string>& heads, std::vector<Row> rows, std::string_view arrayName,
                   const Record& members) const {
    if (style.json)
        PrintLine(stdout, JsonArray(arrayName, rows, members));
    else
        Raw(TableText(heads, std::move(rows)));
}

std::string Output::JsonArray(std::string_view name, const std::vector<Row>& rows, const Record& members) {
    nlohmann::json object = ToJson(members);
    object["schema"] = kSchema;
    nlohmann::json& array = object[std::string(name)] = nlohmann::json::array();
    for (const Row& row : rows) array.push_back(ToJson(row.record));
    return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void Output::Sheet(const std::vector<std::pair<std::string, Cell>>& lines, Record members) const {
    if (style.json) return PrintLine(stdout, JsonText(std::move(members)));
    size_t width = 0;
    for (const auto& line : lines) width = std::max(width, line.first.size());
    for (const auto& [label, cell] : lines)
        PrintLine(stdout, Toned(label, Tone::Head) + std::string(width - label.size() + kGap, ' ') +
                              Toned(Printable(cell.text), cell.tone));
}

void Output::Event(const std::string& sentence, Record members) const {
    PrintLine(stdout, style.json ? JsonText(std::move(members)) : Printable(sentence));
    std::fflush(stdout);
}

void Output::Names(const std::vector<std::string>& names) const {
    if (style.json) return PrintLine(stdout, JsonText({{"names", names}}));
    const bool isTerminal = isatty(STDOUT_FILENO) == 1;
    for (const std::string& name : names)
        PrintLine(stdout, isTerminal || name.find('\n') != std::string::npos ? Printable(name) : name);
}

void Output::Raw(const std::string& bytes) const {
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
}

ExitStatus Output::Error(ExitStatus status, const std::string& sentence, Record members) const {
    members.emplace_back("error", sentence);
    members.emplace_back("status", int64_t{status});
    PrintLine(stderr, style.json ? JsonText(std::move(members)) : "schedulectl: " + Printable(sentence));
    return status;
}

void Output::Warning(const std::string& sentence) const {
    if (style.quiet) return;
    PrintLine(stderr, style.json ? JsonText({{"warning", sentence}}) : "schedulectl: " + Printable(sentence));
}

void Output::Progress(std::string_view what, size_t done, size_t all) const {
    constexpr size_t kBar = 40;
    if (style.quiet || style.json || all == 0 || !isatty(STDERR_FILENO)) return;
    const size_t filled = done * kBar / all;
    const std::string bar = std::string(filled, '#') + std::string(kBar - filled, '.');
    std::fprintf(stderr, "\r%.*s [%s] %zu of %zu%s", static_cast<int>(what.size()), what.data(), bar.c_str(), done, all,
                 done == all ? "\n" : "");
    std::fflush(stderr);
}

std::string Printable(std::string_view text) {
    if (IsPlain(text)) return std::string(text);
    const Utf8Locale locale;
    std::string printable;
    while (!text.empty()) {
        const std::string_view before = text;
        wchar_t character = 0;
        const bool isCharacter = TakeCharacter(text, character);
        const std::string_view bytes = before.substr(0, before.size() - text.size());
        if (!isCharacter || (IsControl(character) && bytes.size() == 1))
            printable += "\\x" + Hex(static_cast<unsigned char>(bytes.front()), 2);
        else if (IsControl(character) || TurnsDirection(character))
            printable += "\\u{" + Hex(static_cast<uint32_t>(character), 4) + "}";
        else
            printable += bytes;
    }
    return printable;
}

size_t DisplayWidth(std::string_view text) {
    if (IsPlain(text)) return text.size();
    const Utf8Locale locale;
    size_t width = 0;
    while (!text.empty()) {
        wchar_t character = 0;
        const int columns = TakeCharacter(text, character) ? wcwidth(character) : 1;
        width += columns < 0 ? 1 : static_cast<size_t>(columns);
    }
    return width;
}

}  // namespace tools
