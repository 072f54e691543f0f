#include "host/printer.h"

#include "host/text.h"

#include <array>
#include <cinttypes>
#include <nlohmann/json.hpp>

namespace host
{

namespace
{

bool is(const owned<Param>& param, unsigned type)
{
    return param->type() == type;
}

class TablePrinter final : public Printer
{
public:
    explicit TablePrinter(std::FILE* out) : m_out(out) {}

    void attributes(const rpc::IIfaceRealize::IAtt& attributes) override
    {
        std::fprintf(m_out, "name         %s\nid           %s\ndescription  %s\n",
                     printable(attributes.name).c_str(), printable(attributes.id).c_str(),
                     printable(gbk_to_utf8(attributes.desc)).c_str());
    }

    void operation(const rpc::IIfaceRealize::FAtt& operation) override
    {
        std::fprintf(m_out, "%s\n", printable(operation.name).c_str());
    }

    void item(const Message& reply) override
    {
        outputs(reply);
        std::fflush(m_out);
    }

    void end(ec::EC result, const Message* reply) override
    {
        if (reply == nullptr) {
            std::fprintf(m_out, "no reply (result %s)\n", hexadecimal(result).c_str());
        } else {
            outputs(*reply);
            std::fprintf(m_out, "%s (code %s)\n",
                         ec::succeeded(reply->code()) ? "success" : "failure",
                         hexadecimal(reply->code()).c_str());
        }
        std::fflush(m_out);
    }

private:
    void outputs(const Message& reply)
    {
        for (const owned<Param>& param : reply.all()) {
            if (is(param, rpc::T_UINT32)) {
                std::fprintf(m_out, "%" PRIu32 "\n", param->number());
            } else if (is(param, rpc::T_UINT32_LIST)) {
                for (const unsigned int id : param->numbers()) {
                    header("%10s\n", "ID");
                    std::fprintf(m_out, "%10u\n", id);
                }
            } else if (is(param, rpc::T_RECORD_LIST)) {
                for (const ServiceRow& row : service_rows(*param)) {
                    header("%10s  %-20s  %-11s  %s\n", "ID", "NAME", "STATE", "DESCRIPTION");
                    std::fprintf(m_out, "%10" PRIu32 "  %-20s  %-11s  %s\n", row.id,
                                 printable(row.name).c_str(), state(row.op).c_str(),
                                 printable(row.desc).c_str());
                }
            }
        }
    }

    /// Prints the heading once.
    template <class... Columns>
    void header(const char* format, Columns... columns)
    {
        if (!m_has_header) {
            m_has_header = true;
            std::fprintf(m_out, format, columns...);
        }
    }

    /// "0 none" and so on.
    static std::string state(rpc::int32 op)
    {
        constexpr std::array<const char*, 4> names = {"none", "optimized", "ignored",
                                                      "unavailable"};
        return std::to_string(op) + (op < names.size() ? std::string(" ") + names[op] : "");
    }

    std::FILE* m_out;
    bool m_has_header = false;
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
              {"description", gbk_to_utf8(attributes.desc)},
              {"extra", attributes.extra}});
    }

    void operation(const rpc::IIfaceRealize::FAtt& operation) override
    {
        line({{"operation", operation.name}, {"extra", operation.extra}});
    }

    void item(const Message& reply) override { line(with_outputs({{"reply", "item"}}, reply)); }

    void end(ec::EC result, const Message* reply) override
    {
        if (reply == nullptr) {
            line({{"reply", "none"}, {"result", hexadecimal(result)}});
        } else {
            line(with_outputs({{"reply", "final"}, {"result", hexadecimal(result)}}, *reply));
        }
    }

private:
    static Json with_outputs(Json object, const Message& reply)
    {
        object["code"] = hexadecimal(reply.code());
        for (const owned<Param>& param : reply.all()) {
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

std::unique_ptr<Printer> table_printer(std::FILE* out)
{
    return std::make_unique<TablePrinter>(out);
}

std::unique_ptr<Printer> json_printer(std::FILE* out)
{
    return std::make_unique<JsonPrinter>(out);
}

std::vector<ServiceRow> service_rows(const Param& param)
{
    constexpr std::array<unsigned, 4> fields = {rpc::T_UINT32, rpc::T_STRING, rpc::T_STRING,
                                                rpc::T_UINT32};
    std::vector<ServiceRow> rows;
    for (const owned<Params>& record : param.records()) {
        const std::vector<owned<Param>>& all = record->all();
        if (std::equal(all.begin(), all.end(), fields.begin(), fields.end(), is)) {
            rows.push_back(
                {all[0]->number(), all[1]->text(), gbk_to_utf8(all[2]->text()), all[3]->number()});
        }
    }
    return rows;
}

} // namespace host
