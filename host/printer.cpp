#include "host/printer.h"

#include "fwbase/text.h"
#include "host/standard_streams.h"
#include "host/text.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

namespace host
{

namespace
{

using transaction::Outcome, transaction::Service;

/// The code of an operation that did what was asked.
constexpr ec::EC done_code = 0x80000000;

/// The outputs of the module's final reply.
const std::vector<owned<fwbase::Param>>& params_of(const Answer& answer)
{
    static const std::vector<owned<fwbase::Param>> none;
    return answer.reply ? answer.reply->all() : none;
}

bool is(const owned<fwbase::Param>& param, unsigned type)
{
    return param->type() == type;
}

/// Terminal colours, as numbers of an SGR sequence.
namespace style
{
constexpr const char* plain = nullptr;
constexpr const char* heading = "1";
constexpr const char* bad = "31";
constexpr const char* good = "32";
constexpr const char* noticed = "33";
} // namespace style

constexpr std::array<const char*, 4> state_names = {"none", "optimized", "ignored", "unavailable"};
constexpr std::array<const char*, state_names.size()> state_colors = {style::plain, style::good,
                                                                      style::noticed, style::bad};

/// A cell of a table. The last one of a row is not padded.
struct Cell {
    std::string text;
    const char* style = style::plain;
};

std::string left(std::string text, std::size_t width)
{
    const std::size_t used = display_width(text);
    return text.append(width - std::min(width, used), ' ');
}

std::string right(const std::string& number)
{
    return std::string(10 - std::min<std::size_t>(number.size(), 10), ' ') + number;
}

/// A file with the rows of a table, and what it can show if it is a terminal.
class Sheet
{
public:
    Sheet(std::FILE* file, bool is_full)
        : m_file(file), m_is_colored(is_colored(file)),
          m_columns(is_full ? std::nullopt : columns_of(file))
    {
    }

    /// Prints cells with two blanks between them, and cuts them to the width that is left.
    void row(const std::vector<Cell>& cells) const
    {
        std::string line;
        std::size_t width = 0;
        for (const Cell& cell : cells) {
            const std::string gap = &cell == &cells.front() ? "" : "  ";
            width += gap.size();
            if (m_columns && width >= *m_columns) {
                break;
            }
            const std::string text = m_columns ? cut(cell.text, *m_columns - width) : cell.text;
            width += display_width(text);
            line += gap + painted(cell.style, text);
        }
        line.erase(line.find_last_not_of(' ') + 1); // npos + 1 is 0
        std::fprintf(m_file, "%s\n", line.c_str());
    }
    void flush() const { require_written(m_file); }
    std::string painted(const char* style, const std::string& text) const
    {
        const bool plain = !m_is_colored || style == style::plain;
        return plain ? text : std::string("\x1B[") + style + "m" + text + "\x1B[0m";
    }

private:
    std::FILE* m_file;
    bool m_is_colored;
    std::optional<std::size_t> m_columns;
};

class TablePrinter final : public Printer
{
public:
    TablePrinter(std::FILE* out, std::FILE* messages, bool is_full)
        : m_out(out, is_full), m_messages(messages, true)
    {
    }

    void attributes(const rpc::IIfaceRealize::IAtt& attributes) override
    {
        m_out.row({{"name       "}, {fwbase::printable(attributes.name)}});
        m_out.row({{"id         "}, {fwbase::printable(attributes.id)}});
        m_out.row({{"description"}, {fwbase::printable(fwbase::gbk_to_utf8(attributes.desc))}});
    }

    void operations(const Operations& list) override
    {
        for (const rpc::IIfaceRealize::FAtt* const operation : list) {
            m_out.row({{fwbase::printable(operation->name)}});
        }
    }

    void answer(const Answer& answer) override
    {
        services(answer.services);
        if (answer.record) {
            record(*answer.record);
            return;
        }
        handled(answer.outcomes);
        for (const owned<fwbase::Param>& param : params_of(answer)) {
            if (is(param, rpc::T_UINT32)) {
                m_out.row({{std::to_string(param->number())}});
            }
        }
        m_out.flush(); // throws if rows are lost, before "success" is printed
        m_messages.row(
            {{end_of(answer) + (answer.is_rehearsal ? "; a dry run: nothing was changed" : "")}});
    }

    void refused(const std::string&) override {}

private:
    void services(const std::vector<Service>& list) const
    {
        if (list.empty()) {
            return;
        }
        std::size_t width = 20; // of the column of names
        for (const Service& each : list) {
            width = std::max(width, display_width(fwbase::printable(each.entry.name)));
        }
        heading({right("ID"), left("NAME", width), left("STATE", 11), left("LEVELS", 6),
                 "DESCRIPTION"});
        for (const Service& each : list) {
            m_out.row({{right(std::to_string(each.entry.id))},
                       {left(fwbase::printable(each.entry.name), width)},
                       state(each.entry.op),
                       {left(fwbase::printable(each.entry.level), 6)},
                       {fwbase::printable(each.entry.desc)}});
        }
    }

    void record(const transaction::Lines& lines) const
    {
        if (lines.empty()) {
            return;
        }
        std::size_t width = 20; // of the column of names
        for (const auto& [name, line] : lines) {
            width = std::max(width, display_width(fwbase::printable(name)));
        }
        heading({left("NAME", width), left("STATE", 13), left("LEVELS", 6), "SINCE"});
        for (const auto& [name, line] : lines) {
            m_out.row({{left(fwbase::printable(name), width)},
                       {left(to_word(line.state), 13)},
                       {left(line.levels, 6)},
                       {line.since}});
        }
    }

    void handled(const std::vector<Outcome>& outcomes) const
    {
        bool has_heading = false;
        for (const Outcome& each : outcomes) {
            if (each.kind != Outcome::done) {
                continue;
            }
            if (!has_heading) {
                heading({right("ID"), "NAME"});
                has_heading = true;
            }
            m_out.row({{right(std::to_string(each.id))}, {fwbase::printable(each.name)}});
        }
    }

    /// How the call ended.
    std::string end_of(const Answer& answer) const
    {
        const ExitStatus status = answer.status();
        if (status == no_reply) {
            return m_messages.painted(style::bad, "no reply") + " (result " +
                   hexadecimal(*answer.result) + ")";
        }
        const std::string code =
            answer.reply ? " (code " + hexadecimal(answer.reply->code()) + ")" : "";
        if (status == success) {
            return m_messages.painted(style::good, "success") + code;
        }
        return m_messages.painted(style::bad, answer.error.empty() ? "not all services were handled"
                                                                   : "failure") +
               code;
    }

    void heading(const std::vector<std::string>& texts) const
    {
        std::vector<Cell> cells;
        cells.reserve(texts.size());
        for (const std::string& text : texts) {
            cells.push_back({text, style::heading});
        }
        m_out.row(cells);
    }

    /// For example "0 none", padded to the width of the column.
    static Cell state(int op)
    {
        const auto known = static_cast<std::size_t>(op); // not if it is negative or too large
        const bool is_known = known < state_names.size();
        return {left(std::to_string(op) + " " + (is_known ? state_names[known] : ""), 11),
                is_known ? state_colors[known] : style::plain};
    }

    Sheet m_out;
    Sheet m_messages;
};

class JsonPrinter final : public Printer
{
    using Json = nlohmann::ordered_json;

public:
    explicit JsonPrinter(std::FILE* out) : m_out(out) {}

    void attributes(const rpc::IIfaceRealize::IAtt& attributes) override
    {
        line({{"name", attributes.name},
              {"id", attributes.id},
              {"description", fwbase::gbk_to_utf8(attributes.desc)},
              {"extra", attributes.extra}});
        line({{"reply", "final"}});
    }

    void operations(const Operations& list) override
    {
        for (const rpc::IIfaceRealize::FAtt* const operation : list) {
            line({{"operation", operation->name}, {"extra", operation->extra}});
        }
        line({{"reply", "final"}});
    }

    void answer(const Answer& answer) override
    {
        for (const Service& each : answer.services) {
            Json service = {{"id", each.entry.id},
                            {"name", each.entry.name},
                            {"desc", each.entry.desc},
                            {"op", each.entry.op},
                            {"level", each.entry.level}};
            if (!each.is_listed) {
                service["listed"] = false;
            }
            item({{"services", Json::array({service})}}, true);
        }
        for (const auto& [name, line] : answer.record.value_or(transaction::Lines())) {
            item({{"name", name},
                  {"state", to_word(line.state)},
                  {"level", line.levels},
                  {"since", line.since}},
                 false);
        }
        for (const Outcome& each : answer.outcomes) {
            if (each.kind == Outcome::done) {
                item({{"ids", {each.id}}, {"names", {each.name}}}, answer.result.has_value());
            }
        }
        line(end_of(answer));
    }

    void refused(const std::string& reason) override
    {
        line({{"reply", "none"}, {"error", reason}});
    }

private:
    /// The last object that is printed for a call.
    static Json end_of(const Answer& answer)
    {
        Json object = {{"reply", answer.status() == no_reply ? "none" : "final"}};
        if (answer.result) {
            object["result"] = hexadecimal(*answer.result);
        }
        if (answer.reply) {
            object["code"] = hexadecimal(answer.reply->code());
        }
        for (const owned<fwbase::Param>& param : params_of(answer)) {
            if (is(param, rpc::T_UINT32)) {
                object["value"] = param->number();
            } else if (is(param, rpc::T_UINT32_LIST)) {
                object["ids"] = param->numbers();
            } else if (is(param, rpc::T_RECORD_LIST)) {
                object["services"] = Json::array();
            }
        }
        for (const Outcome& each : answer.outcomes) {
            if (each.kind == Outcome::not_handled) {
                object["not_handled"].push_back(with_reason(service(each), each));
            } else if (each.kind == Outcome::unchanged) {
                object["unchanged"].push_back(service(each));
            }
        }
        if (!answer.error.empty()) {
            object["error"] = answer.error;
        }
        if (answer.is_rehearsal) {
            object["dry_run"] = true;
        }
        return object;
    }

    static Json service(const Outcome& outcome)
    {
        Json object;
        if (outcome.has_id) {
            object["id"] = outcome.id;
        }
        if (!outcome.name.empty()) {
            object["name"] = outcome.name;
        }
        return object;
    }

    static Json with_reason(Json object, const Outcome& outcome)
    {
        object["reason"] = outcome.reason;
        object["message"] = outcome.message;
        return object;
    }

    /// Prints an object that comes before the last one. With `is_modules`, it stands for a reply of
    /// the module and has the code of a success.
    void item(const Json& members, bool is_modules)
    {
        Json object = {{"reply", "item"}};
        if (is_modules) {
            object["code"] = hexadecimal(done_code);
        }
        object.update(members);
        line(object);
    }

    void line(const Json& object)
    {
        std::string text = object.dump(-1, ' ', false, Json::error_handler_t::replace);
        // A terminal would obey the control characters from U+0080 on.
        for (std::size_t at = 0; (at = text.find('\xC2', at)) != std::string::npos; ++at) {
            const auto second = static_cast<unsigned char>(text[at + 1]);
            if (second < 0xA0) {
                text.replace(at, 2, "\\u00" + hexadecimal(second).substr(8));
            }
        }
        std::fprintf(m_out, "%s\n", text.c_str());
        std::fflush(m_out);
    }

    std::FILE* m_out;
};

} // namespace

std::unique_ptr<Printer> table_printer(std::FILE* out, std::FILE* messages, bool is_full)
{
    return std::make_unique<TablePrinter>(out, messages, is_full);
}

std::unique_ptr<Printer> json_printer(std::FILE* out)
{
    return std::make_unique<JsonPrinter>(out);
}

} // namespace host
