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

/// A file, and whether it is coloured.
class Lines
{
public:
    explicit Lines(std::FILE* file) : m_file(file), m_colored(is_colored(file)) {}

    void print(const std::string& text) const { std::fprintf(m_file, "%s\n", text.c_str()); }
    void flush() const { std::fflush(m_file); }
    std::string painted(const char* color, const std::string& text) const
    {
        const bool plain = !m_colored || color == style::plain;
        return plain ? text : std::string("\x1B[") + color + "m" + text + "\x1B[0m";
    }

private:
    std::FILE* m_file;
    bool m_colored;
};

class TablePrinter final : public Printer
{
public:
    TablePrinter(std::FILE* out, std::FILE* messages) : m_out(out), m_messages(messages) {}

    void attributes(const rpc::IIfaceRealize::IAtt& attributes) override
    {
        line("name         " + fwbase::printable(attributes.name));
        line("id           " + fwbase::printable(attributes.id));
        line("description  " + fwbase::printable(fwbase::gbk_to_utf8(attributes.desc)));
    }

    void operations(const Operations& list) override
    {
        for (const rpc::IIfaceRealize::FAtt* const operation : list) {
            line(fwbase::printable(operation->name));
        }
    }

    void services(const std::vector<Service>& list) override
    {
        std::size_t width = 20; // of the column of names
        for (const Service& each : list) {
            width = std::max(width, display_width(fwbase::printable(each.entry.name)));
        }
        heading(!list.empty(), right("ID") + "  " + left("NAME", width) + "  " + left("STATE", 11) +
                                   "  DESCRIPTION");
        for (const Service& each : list) {
            line(right(std::to_string(each.entry.id)) + "  " +
                 left(fwbase::printable(each.entry.name), width) + "  " + state(each.entry.op) +
                 "  " + fwbase::printable(each.entry.desc));
        }
    }

    void end(const Ending& ending) override
    {
        const auto is_done = [](const Outcome& each) { return each.kind == Outcome::done; };
        heading(std::any_of(ending.outcomes.begin(), ending.outcomes.end(), is_done),
                right("ID") + "  NAME");
        for (const Outcome& each : ending.outcomes) {
            if (is_done(each)) {
                line(right(std::to_string(each.id)) + "  " + fwbase::printable(each.name));
            }
        }
        std::string status = m_messages.painted(style::bad, "no reply") + " (result " +
                             hexadecimal(ending.result) + ")";
        if (ending.reply != nullptr) {
            for (const owned<fwbase::Param>& param : ending.reply->all()) {
                if (is(param, rpc::T_UINT32)) {
                    line(std::to_string(param->number()));
                }
            }
            const ec::EC code = ending.reply->code();
            status = (ec::succeeded(code) ? m_messages.painted(style::good, "success")
                                          : m_messages.painted(style::bad, "failure")) +
                     " (code " + hexadecimal(code) + ")";
        }
        m_out.flush();
        m_messages.print(status + (ending.is_rehearsal ? "; a dry run: nothing was changed" : ""));
        m_messages.flush();
    }

    void refused(const std::string&) override {}

private:
    void line(const std::string& text) const { m_out.print(text); }

    void heading(bool has_rows, const std::string& text) const
    {
        if (has_rows) {
            line(m_out.painted(style::heading, text));
        }
    }

    /// For example "0 none", padded to the width of the column.
    std::string state(int op) const
    {
        const auto known = static_cast<std::size_t>(op); // not if it is negative or too large
        const bool is_known = known < state_names.size();
        return m_out.painted(
            is_known ? state_colors[known] : style::plain,
            left(std::to_string(op) + " " + (is_known ? state_names[known] : ""), 11));
    }

    static std::string left(std::string text, std::size_t width)
    {
        const std::size_t used = display_width(text);
        return text.append(width - std::min(width, used), ' ');
    }
    static std::string right(const std::string& number)
    {
        return std::string(10 - std::min<std::size_t>(number.size(), 10), ' ') + number;
    }

    Lines m_out;
    Lines m_messages;
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

    void services(const std::vector<Service>& list) override
    {
        for (const Service& each : list) {
            Json service = {{"id", each.entry.id},
                            {"name", each.entry.name},
                            {"desc", each.entry.desc},
                            {"op", each.entry.op}};
            if (!each.is_listed) {
                service["listed"] = false;
            }
            line({{"reply", "item"}, {"code", done_code}, {"services", Json::array({service})}});
        }
    }

    void end(const Ending& ending) override
    {
        for (const Outcome& each : ending.outcomes) {
            if (each.kind == Outcome::done) {
                line({{"reply", "item"},
                      {"code", done_code},
                      {"ids", {each.id}},
                      {"names", {each.name}}});
            }
        }
        const std::string result = hexadecimal(ending.result);
        Json object = {{"reply", ending.reply == nullptr ? "none" : "final"}, {"result", result}};
        if (ending.reply != nullptr) {
            object = with_outputs(object, *ending.reply);
        }
        for (const Outcome& each : ending.outcomes) {
            Json service = {{"id", each.id}};
            if (!each.name.empty()) {
                service["name"] = each.name;
            }
            if (each.kind == Outcome::not_handled) {
                service["reason"] = each.reason;
                service["message"] = each.message;
                object["not_handled"].push_back(service);
            } else if (each.kind == Outcome::unchanged) {
                object["unchanged"].push_back(service);
            }
        }
        if (!ending.error.empty()) {
            object["error"] = ending.error;
        }
        if (ending.is_rehearsal) {
            object["dry_run"] = true;
        }
        line(object);
    }

    void refused(const std::string& reason) override
    {
        line({{"reply", "none"}, {"error", reason}});
    }

private:
    static Json with_outputs(Json object, const fwbase::Message& reply)
    {
        object["code"] = hexadecimal(reply.code());
        for (const owned<fwbase::Param>& param : reply.all()) {
            if (is(param, rpc::T_UINT32)) {
                object["value"] = param->number();
            } else if (is(param, rpc::T_UINT32_LIST)) {
                object["ids"] = param->numbers();
            } else if (is(param, rpc::T_RECORD_LIST)) {
                object["services"] = Json::array();
            }
        }
        return object;
    }

    void line(const Json& object)
    {
        const std::string text = object.dump(-1, ' ', false, Json::error_handler_t::replace);
        std::fprintf(m_out, "%s\n", text.c_str());
        std::fflush(m_out);
    }

    static constexpr const char* done_code = "0x80000000";

    std::FILE* m_out;
};

} // namespace

std::unique_ptr<Printer> table_printer(std::FILE* out, std::FILE* messages)
{
    return std::make_unique<TablePrinter>(out, messages);
}

std::unique_ptr<Printer> json_printer(std::FILE* out)
{
    return std::make_unique<JsonPrinter>(out);
}

} // namespace host
