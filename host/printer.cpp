#include "host/printer.h"

#include "fwbase/text.h"
#include "host/configuration.h"
#include "host/standard_streams.h"
#include "host/text.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>

namespace host
{

namespace
{

bool is(const owned<fwbase::Param>& param, unsigned type)
{
    return param->type() == type;
}

/// One listed service; texts are UTF-8.
struct ServiceRow {
    rpc::int32 id;
    std::string name;
    std::string desc;
    rpc::int32 op;
};

/// The services in a T_RECORD_LIST parameter. Records with other fields are skipped.
std::vector<ServiceRow> service_rows(const fwbase::Param& param)
{
    constexpr std::array<unsigned, 4> fields = {rpc::T_UINT32, rpc::T_STRING, rpc::T_STRING,
                                                rpc::T_UINT32};
    std::vector<ServiceRow> rows;
    for (const owned<fwbase::Params>& record : param.records()) {
        const std::vector<owned<fwbase::Param>>& all = record->all();
        if (std::equal(all.begin(), all.end(), fields.begin(), fields.end(), is)) {
            rows.push_back({all[0]->number(), all[1]->text(), fwbase::gbk_to_utf8(all[2]->text()),
                            all[3]->number()});
        }
    }
    return rows;
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

    void begin(const Names& names) override
    {
        m_names = names;
        m_width = 20;
        for (const auto& [id, name] : names) {
            m_width = std::max(m_width, display_width(fwbase::printable(name)));
        }
    }

    void item(const fwbase::Message& reply) override
    {
        outputs(reply);
        m_out.flush();
    }

    void end(const Ending& ending) override
    {
        std::string status = m_messages.painted(style::bad, "no reply") + " (result " +
                             hexadecimal(ending.result) + ")";
        if (ending.reply != nullptr) {
            outputs(*ending.reply);
            const ec::EC code = ending.reply->code();
            status = (ec::succeeded(code) ? m_messages.painted(style::good, "success")
                                          : m_messages.painted(style::bad, "failure")) +
                     " (code " + hexadecimal(code) + ")";
        }
        m_out.flush();
        m_messages.print(status);
        m_messages.flush();
        m_has_heading = false;
        begin({});
    }

    void refused(const std::string&) override {}

private:
    void outputs(const fwbase::Message& reply)
    {
        for (const owned<fwbase::Param>& param : reply.all()) {
            if (is(param, rpc::T_UINT32)) {
                line(std::to_string(param->number()));
            } else if (is(param, rpc::T_UINT32_LIST)) {
                for (const unsigned int id : param->numbers()) {
                    const auto name = m_names.find(id);
                    heading(right("ID") + (m_names.empty() ? "" : "  NAME"));
                    line(right(std::to_string(id)) +
                         (name == m_names.end() ? "" : "  " + fwbase::printable(name->second)));
                }
            } else if (is(param, rpc::T_RECORD_LIST)) {
                for (const ServiceRow& row : service_rows(*param)) {
                    heading(right("ID") + "  " + left("NAME", m_width) + "  " + left("STATE", 11) +
                            "  DESCRIPTION");
                    line(right(std::to_string(row.id)) + "  " +
                         left(fwbase::printable(row.name), m_width) + "  " + state(row.op) + "  " +
                         fwbase::printable(row.desc));
                }
            }
        }
    }

    void line(const std::string& text) const { m_out.print(text); }

    /// Prints the heading before the first row of a call.
    void heading(const std::string& text)
    {
        if (!m_has_heading) {
            m_has_heading = true;
            line(m_out.painted(style::heading, text));
        }
    }

    /// For example "0 none", padded to the width of the column.
    std::string state(rpc::int32 op) const
    {
        const bool known = op < state_names.size();
        return m_out.painted(known ? state_colors[op] : style::plain,
                             left(std::to_string(op) + " " + (known ? state_names[op] : ""), 11));
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
    Names m_names;
    std::size_t m_width = 20; ///< of the column of names
    bool m_has_heading = false;
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

    void begin(const Names& names) override { m_names = names; }

    void item(const fwbase::Message& reply) override
    {
        line(with_outputs({{"reply", "item"}}, reply));
    }

    void end(const Ending& ending) override
    {
        const std::string result = hexadecimal(ending.result);
        if (ending.reply == nullptr) {
            line({{"reply", "none"}, {"result", result}});
            return;
        }
        Json object = with_outputs({{"reply", "final"}, {"result", result}}, *ending.reply);
        for (const Unhandled& each : ending.not_handled) {
            Json service = {{"id", each.id}, {"reason", each.reason}};
            if (!each.name.empty()) {
                service = {{"id", each.id}, {"name", each.name}, {"reason", each.reason}};
            }
            object["not_handled"].push_back(service);
        }
        for (const Unhandled& each : ending.unchanged) {
            object["unchanged"].push_back({{"id", each.id}, {"name", each.name}});
        }
        if (!ending.error.empty()) {
            object["error"] = ending.error;
        }
        line(object);
    }

    void refused(const std::string& reason) override
    {
        line({{"reply", "none"}, {"error", reason}});
    }

private:
    Json with_outputs(Json object, const fwbase::Message& reply) const
    {
        object["code"] = hexadecimal(reply.code());
        for (const owned<fwbase::Param>& param : reply.all()) {
            if (is(param, rpc::T_UINT32)) {
                object["value"] = param->number();
            } else if (is(param, rpc::T_UINT32_LIST)) {
                object["ids"] = param->numbers();
                for (const unsigned int id : param->numbers()) {
                    if (const auto name = m_names.find(id); name != m_names.end()) {
                        object["names"].push_back(name->second);
                    }
                }
            } else if (is(param, rpc::T_RECORD_LIST)) {
                object["services"] = Json::array();
                for (const ServiceRow& row : service_rows(*param)) {
                    object["services"].push_back(
                        {{"id", row.id}, {"name", row.name}, {"desc", row.desc}, {"op", row.op}});
                }
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

    std::FILE* m_out;
    Names m_names;
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
