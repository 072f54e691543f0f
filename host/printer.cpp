#include "host/printer.h"

#include "fwbase/text.h"
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

/// Terminal colours, as numbers of an SGR sequence.
namespace style
{
constexpr const char* plain = nullptr;
constexpr const char* heading = "1";
constexpr const char* bad = "31";
constexpr const char* good = "32";
constexpr const char* noticed = "33";
} // namespace style

/// How a state of a service is shown.
struct State {
    const char* name;
    const char* color;
};

constexpr std::array<State, 4> states = {{{"none", style::plain},
                                          {"optimized", style::good},
                                          {"ignored", style::noticed},
                                          {"unavailable", style::bad}}};

class TablePrinter final : public Printer
{
public:
    TablePrinter(std::FILE* out, bool colored) : m_out(out), m_colored(colored) {}

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

    void item(const fwbase::Message& reply) override
    {
        outputs(reply);
        std::fflush(m_out);
    }

    void end(const Ending& ending) override
    {
        if (ending.reply == nullptr) {
            line(painted(style::bad, "no reply") + " (result " + hexadecimal(ending.result) + ")");
        } else {
            outputs(*ending.reply);
            const ec::EC code = ending.reply->code();
            line((ec::succeeded(code) ? painted(style::good, "success")
                                      : painted(style::bad, "failure")) +
                 " (code " + hexadecimal(code) + ")");
        }
        std::fflush(m_out);
        m_has_heading = false;
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
                    heading(right("ID"));
                    line(right(std::to_string(id)));
                }
            } else if (is(param, rpc::T_RECORD_LIST)) {
                for (const ServiceRow& row : service_rows(*param)) {
                    heading(right("ID") + "  " + left("NAME", 20) + "  " + left("STATE", 11) +
                            "  DESCRIPTION");
                    line(right(std::to_string(row.id)) + "  " +
                         left(fwbase::printable(row.name), 20) + "  " + state(row.op) + "  " +
                         fwbase::printable(row.desc));
                }
            }
        }
    }

    void line(const std::string& text) { std::fprintf(m_out, "%s\n", text.c_str()); }

    /// Prints the heading before the first row of a call.
    void heading(const std::string& text)
    {
        if (!m_has_heading) {
            m_has_heading = true;
            line(painted(style::heading, text));
        }
    }

    std::string painted(const char* color, const std::string& text) const
    {
        const bool plain = !m_colored || color == style::plain;
        return plain ? text : std::string("\x1B[") + color + "m" + text + "\x1B[0m";
    }

    /// For example "0 none", padded to the width of the column.
    std::string state(rpc::int32 op) const
    {
        const State known = op < states.size() ? states[op] : State{"", style::plain};
        return painted(known.color, left(std::to_string(op) + " " + known.name, 11));
    }

    static std::string left(std::string text, std::size_t width)
    {
        text.resize(std::max(text.size(), width), ' ');
        return text;
    }
    static std::string right(const std::string& number)
    {
        return std::string(10 - std::min<std::size_t>(number.size(), 10), ' ') + number;
    }

    std::FILE* m_out;
    bool m_colored;
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
        for (const unsigned int id : ending.not_handled) {
            object["not_handled"].push_back({{"id", id}});
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
};

} // namespace

std::unique_ptr<Printer> table_printer(std::FILE* out, bool colored)
{
    return std::make_unique<TablePrinter>(out, colored);
}

std::unique_ptr<Printer> json_printer(std::FILE* out)
{
    return std::make_unique<JsonPrinter>(out);
}

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

} // namespace host
