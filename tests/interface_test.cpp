// The interface object: from call block to reply block, and what is left when the framework fails.
#include "host/call.h"
#include "host/framework.h"
#include "rpc/result_codes.h"
#include "rpc/system_option_s.h"
#include "tests/allocations.h"
#include "tests/fake_framework.h"
#include "tests/workspace.h"

#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <thread>

namespace
{

using host::Arguments;
using Calls = std::vector<std::string>;
using Items = std::vector<rpc::SystemOptimize_Item>;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr const char* operation_names[] = {
    "get_optimize_num", "get_optimize_sorce", "ignore_other",
    "ignore_reg",       "ignore_service",     "ls_other",
    "ls_reg",           "ls_service",         "optimize_other",
    "optimize_reg",     "optimize_service",   "restore_other",
    "restore_reg",      "restore_service",    "set_optimize_sorce"};

class InterfaceTest : public Workspace
{
protected:
    InterfaceTest()
    {
        install_stand_ins();
        write("listing",
              "a\t0:off\t1:off\t2:on\t3:on\nb\t0:off\n\nxinetd based services:\n\tx:\ton\n");
        reset_conf();
        EXPECT_EQ(m_interface.init(nullptr), operation_result_success);
    }
    ~InterfaceTest() override
    {
        m_interface.release();
        EXPECT_EQ(host::rpc_references(), 0);
        fake::log_entries.clear();
    }

    static void reset_conf()
    {
        write_conf("<info id='1' name='a' op='0' level='23' xinetd='0' desc='d'/>"
                   "<info id='2' name='b' op='1' level='35' xinetd='0' desc='d'/>"
                   "<info id='3' name='x' op='2' level='on' xinetd='1' desc='d'/>"
                   "<info id='4' name='a' op='3' level='off' xinetd='0' desc='d'/>"
                   "<info id='-1' name='x' op='0' level='on' xinetd='1' desc='d'/>"
                   "<info id='6' name='x' op='0' level='off' xinetd='1' desc='d'/>");
    }

    /// Runs a call; its replies as text, e.g. "item 1; final 0x80000000".
    std::string call(const std::string& operation, const Arguments& arguments)
    {
        std::string text;
        ec::EC result = 0;
        const owned<host::Message> reply = host::call(
            m_interface, operation, arguments,
            [&](const host::Message& item) { text += "item" + outputs(item) + "; "; }, result);
        if (!reply) {
            return text + "none " + hex(result);
        }
        EXPECT_EQ(result, rpc::result::success);
        return text + hex(reply->code()) + outputs(*reply);
    }

    static std::string hex(ec::EC code)
    {
        char text[16];
        std::snprintf(text, sizeof text, "%08X", code);
        return text;
    }

    static std::string outputs(const host::Message& reply)
    {
        std::string text;
        for (const owned<host::Param>& param : reply.all()) {
            if (param->type() == rpc::T_UINT32) {
                text += " =" + std::to_string(param->number());
            } else if (param->type() == rpc::T_UINT32_LIST) {
                text += " ids";
                for (const unsigned int id : param->numbers()) {
                    text += " " + std::to_string(id);
                }
            } else {
                text += " list";
                for (const owned<host::Params>& record : param->records()) {
                    const auto& fields = record->all();
                    text += " " + std::to_string(fields[0]->number()) + fields[1]->text() +
                            fields[2]->text() + std::to_string(fields[3]->number());
                }
            }
        }
        return text;
    }

    static std::vector<rpc::SystemOptimize_Item> two_items(std::size_t length = 1)
    {
        return {{1, new std::string("a"), new std::string(length, 'x'), 0},
                {2, new std::string("b"), new std::string("y"), 1}};
    }

    static constexpr ec::EC operation_result_success = 0x80000000;
    rpc::CIfaceRealize_Optimize_Option m_interface;
};

TEST_F(InterfaceTest, DescribesItself)
{
    EXPECT_EQ(rpc_ireal_Optimize_Option(), rpc_ireal_Optimize_Option());
    const auto& attributes = *m_interface.iatt();
    EXPECT_EQ(attributes.name, "Optimize_Option");
    EXPECT_EQ(attributes.id, "8e926ff4-176f-439f-9349-683eefb42ech");
    EXPECT_EQ(attributes.desc, "\xB2\xD9\xD7\xF7\xCF\xB5\xCD\xB3\xD3\xC5\xBB\xAF");
    EXPECT_EQ(attributes.extra, "");

    EXPECT_EQ(m_interface.init(nullptr), operation_result_success); // keeps one reference
    EXPECT_EQ(host::rpc_references(), 1);
    ex_std::vector<const rpc::IIfaceRealize::FAtt*> list(3);
    EXPECT_EQ(m_interface.fatts(list), 0x840C0000);
    std::vector<std::string> names;
    for (const auto* const operation : list) {
        names.push_back(operation->name + operation->extra);
    }
    EXPECT_THAT(names, testing::ElementsAreArray(operation_names));

    m_interface.release();
    EXPECT_EQ(m_interface.fatts(list), 0x840C0000);
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(attributes.name, "Optimize_Option");

    // A host without the RPC service, or without memory for the service object.
    fake::rpc_faults.arm(1);
    EXPECT_EQ(m_interface.init(nullptr), fake::not_found);
    allocations::fail_nothrow(1);
    EXPECT_EQ(m_interface.init(nullptr), 0U);
    EXPECT_EQ(host::rpc_references(), 0);
    m_interface.fatts(list);
    EXPECT_EQ(list.size(), 15U);
}

TEST_F(InterfaceTest, FindsTheBodyAndTheName)
{
    host::Message request("get_optimize_num");
    std::string body(request.size(), '\0');
    request.write(reinterpret_cast<unsigned char*>(body.data()), request.size());
    const std::string header4("\1\2\0\3", 4);
    const std::string header255("\1\2\xFF\3", 4);
    const std::pair<std::string, ec::EC> table[] = {
        {header4 + body, 0x840C0000},
        {std::string("\1\2\x0A\3", 4) + std::string(10, 'e') + body, 0x840C0000},
        {header255 + std::string(255, 'e') + body, 0x840C0000},
        {header255 + body, 0x040C000A},
        {header4 + body + "x", 0x040C000A},
        {header4, 0x040C000A},
        {header4.substr(0, 3), 0x040C000A},
        {"", 0x040C000A}};
    for (const auto& [bytes, expected] : table) {
        fwbase::IDataBlock* block = nullptr;
        host::framework().mem_manager()->new_block(block, static_cast<std::uint32_t>(bytes.size()));
        const owned<fwbase::IDataBlock> in(block);
        std::copy(bytes.begin(), bytes.end(), in->buffer());
        fwbase::IDataBlock* out = nullptr;
        fake::Command command;
        EXPECT_EQ(m_interface.call_func(in.get(), out, &command), expected) << bytes.size();
        const owned<fwbase::IDataBlock> reply(out);
        EXPECT_EQ(reply != nullptr, ec::succeeded(expected));
    }
    for (const char* const name : {"LS_SERVICE", "ls_service ", "ls_servic", ""}) {
        EXPECT_EQ(call(name, {}), "none 040C0001") << name;
    }
}

TEST_F(InterfaceTest, TakesEachOperationsParameters)
{
    using Ids = std::vector<unsigned int>;
    const Ids two = {2};
    const std::string long_text(300, 'x');
    const unsigned char yes = 2;
    const rpc::int32 number = 7;
    struct Input {
        unsigned type;
        const void* value;
    };
    const Input ids{rpc::T_UINT32_LIST, &two};
    const Input value{rpc::T_UINT32, &number};
    const Input text{rpc::T_STRING, &long_text};
    const Input flag{rpc::T_BOOL, &yes};
    const struct {
        const char* operation;
        std::vector<Input> inputs;
        ec::EC expected;
    } table[] = {
        {"set_optimize_sorce", {}, 0x040C0005},
        {"set_optimize_sorce", {text}, 0x040C0005},
        {"set_optimize_sorce", {flag}, 0x040C0005},
        {"set_optimize_sorce", {value, text}, 0x840C0000},
        {"optimize_service", {}, 0x040C0005},
        {"optimize_service", {value}, 0x040C0005},
        {"restore_reg", {text}, 0x040C0005},
        {"optimize_other", {ids}, 0x840C0000},
        {"ignore_service", {}, 0x040C0005},
        {"ignore_service", {flag}, 0x040C0005},
        {"ignore_service", {ids}, 0x040C0005},
        {"ignore_reg", {flag, value}, 0x040C0005},
        {"ignore_reg", {text, ids}, 0x840C0000},
        {"ignore_service", {value, ids}, 0x840C0000},
        {"ls_service", {text}, 0x840C0000},
    };
    for (const auto& row : table) {
        host::Message request(row.operation);
        for (const Input& input : row.inputs) {
            request.params()->add(host::Param::make(input.type, input.value, false).release());
        }
        const auto block = host::make_call_block(request);
        fwbase::IDataBlock* out = nullptr;
        fake::Command command;
        EXPECT_EQ(m_interface.call_func(block.get(), out, &command), row.expected)
            << row.operation << row.inputs.size();
        const owned<fwbase::IDataBlock> reply(out);
        EXPECT_EQ(reply != nullptr, ec::succeeded(row.expected));
    }
    EXPECT_THAT(read(conf_path), HasSubstr("<optimize_sorce>7<"));
}

TEST_F(InterfaceTest, AnswersTheSimpleOperations)
{
    EXPECT_EQ(call("get_optimize_sorce", {}), "80000000 =85");
    EXPECT_EQ(call("set_optimize_sorce", {{}, 4294967295U, {}}), "80000000");
    EXPECT_EQ(call("get_optimize_sorce", {}), "80000000 =2147483647"); // as far as an int goes
    EXPECT_EQ(call("get_optimize_num", {}), "80000000 =3");

    const std::string before = read(conf_path);
    for (const std::string kind : {"reg", "other"}) {
        EXPECT_EQ(call("ls_" + kind, {}), "80000000 list");
        EXPECT_EQ(call("optimize_" + kind, {{}, {}, {{1, 2}}}), "80000000 ids");
        EXPECT_EQ(call("restore_" + kind, {{}, {}, {{1, 2}}}), "80000000 ids");
        EXPECT_EQ(call("ignore_" + kind, {true, {}, {{1, 2}}}), "80000000 ids");
    }
    EXPECT_EQ(read(conf_path), before);

    write(conf_path, "<kavra_conf/>");
    EXPECT_EQ(call("get_optimize_num", {}), "00000000");
    EXPECT_EQ(call("set_optimize_sorce", {{}, 1, {}}), "00000000");
    write(conf_path, "<kavra_conf>");
    for (const char* const operation : {"ls_service", "get_optimize_sorce"}) {
        EXPECT_EQ(call(operation, {}), "00000000");
    }
    EXPECT_EQ(call("ignore_service", {true, {}, {{1}}}), "00000000");
    EXPECT_TRUE(ran().empty());
}

TEST_F(InterfaceTest, StreamsTheListing)
{
    EXPECT_EQ(call("ls_service", {}),
              "item list 1ad0; item list 2bd1; item list 3xd2; item list 4ad0; "
              "item list 4294967295xd0; item list 6xd0; 80000000 list");
    write("listing", "");
    EXPECT_EQ(call("ls_service", {}), "80000000 list");
    EXPECT_THAT(read(conf_path), HasSubstr("id=\"2\" name=\"b\" op=\"3\" level=\"35\""));
}

TEST_F(InterfaceTest, MovesServicesBetweenStates)
{
    const std::string sed_off = R"(sed -i s/\(^.*disable.*=.*\)\( .*$\)/\1 yes/g /etc/xinetd.d/x)";
    const std::string a_off = "chkconfig --level 23 a off";
    const std::string b_on = "chkconfig --level 35 b on";
    const struct {
        const char* operation;
        std::optional<bool> flag;
        std::vector<unsigned int> ids;
        const char* failing;
        std::vector<std::string> commands;
        const char* replies;
        const char* states; // of 1, 2, 3, 4, -1 and 6
    } table[] = {
        {"optimize_service", {}, {}, "", {}, "80000000 ids", "012300"},
        {"optimize_service", {}, {1}, "", {a_off}, "item ids 1; 80000000 ids", "112300"},
        {"optimize_service", {}, {5, 2, 3, 4, 99}, "", {}, "80000000 ids", "012300"},
        {"optimize_service",
         {},
         {1, 1},
         "",
         {a_off, a_off},
         "item ids 1; item ids 1; 80000000 ids",
         "112300"},
        {"optimize_service",
         {},
         {4294967295U, 1},
         "",
         {sed_off, a_off},
         "item ids 4294967295; item ids 1; 80000000 ids",
         "112310"},
        {"optimize_service", {}, {6}, "", {}, "item ids 6; 80000000 ids", "012301"}, // level "off"
        {"optimize_service",
         {},
         {4294967295U, 1},
         "xinetd",
         {sed_off, a_off},
         "item ids 1; 80000000 ids",
         "112300"},
        {"optimize_service", {}, {1}, " a off", {a_off}, "80000000 ids", "012300"},
        {"restore_service", {}, {1, 3, 4}, "", {}, "80000000 ids", "012300"},
        {"restore_service", {}, {2}, "", {b_on}, "item ids 2; 80000000 ids", "002300"},
        {"restore_service", {}, {2}, "level", {b_on}, "80000000 ids", "012300"},
        {"ignore_service",
         true,
         {6, 2, 3, 1},
         "",
         {},
         "item ids 6; item ids 1; 80000000 ids",
         "212302"},
        {"ignore_service", false, {1, 2, 3, 4}, "", {}, "item ids 3; 80000000 ids", "010300"},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(std::string(row.operation) + " -> " + row.replies);
        reset_conf();
        const std::string before = read(conf_path);
        write("ran", "");
        write("failing", row.failing);
        EXPECT_EQ(call(row.operation, {row.flag, {}, row.ids}), row.replies);
        EXPECT_EQ(ran(), row.commands);
        std::vector<ServiceOptimize> entries;
        std::string states(6, '?');
        for (const OptimizeOperate op : {OPT_NONE, OPT_OPTIMIZED, OPT_IGNORED, OPT_UNAVAILABLE}) {
            entries.clear();
            ASSERT_TRUE(CConf::GetServiceFromConfigByOp(entries, op));
            for (const ServiceOptimize& entry : entries) {
                states[entry.id == -1 ? 4 : static_cast<std::size_t>(entry.id) - 1] =
                    static_cast<char>('0' + op);
            }
        }
        EXPECT_EQ(states, row.states);
        EXPECT_TRUE(states != "012300" ||
                    read(conf_path) == before); // nothing handled, nothing saved
    }
}

TEST_F(InterfaceTest, ReconcilesAfterAFailedSave)
{
    write("bin/chkconfig",
          "#!/bin/sh\necho \"chkconfig $*\" >>ran\n"
          "[ \"$1\" = --list ] && cat listing || mkdir config/system_operation/.conf.xml.tmp\n");
    EXPECT_EQ(call("optimize_service", {{}, {}, {{1}}}), "00000000"); // switched, not recorded
    EXPECT_THAT(ran(), ElementsAre("chkconfig --level 23 a off"));
    EXPECT_THAT(read(conf_path), HasSubstr("id='1' name='a' op='0'"));
    ASSERT_EQ(std::system("rmdir config/system_operation/.conf.xml.tmp"), 0);
    write("listing", "a\t0:off\n");
    EXPECT_EQ(call("ls_service", {}), "80000000 list");
    EXPECT_THAT(read(conf_path), HasSubstr("id=\"1\" name=\"a\" op=\"3\" level=\"off\""));
}

ec::EC code_of_failed_call(const std::string& call)
{
    const std::map<std::string, ec::EC> codes = {
        {"new_request", 0x040C0008},   {"read", 0x040C000A},
        {"new_reply", 0x040C0009},     {"new_record", 0x040C0007},
        {"new_param", 0x040C0006},     {"write", 0x040C000B},
        {"new_block", fake::no_block}, {"reply", 0}};
    return codes.at(call);
}

// The n-th call of the framework fails, for every n until none does.
TEST_F(InterfaceTest, HandlersSurviveEveryFailureOfTheFramework)
{
    const struct {
        const char* operation;
        Arguments arguments;
        int items;
    } table[] = {{"get_optimize_sorce", {}, 0},
                 {"set_optimize_sorce", {{}, 1, {}}, 0},
                 {"ls_service", {}, 6},
                 {"ls_reg", {}, 0},
                 {"optimize_service", {{}, {}, {{1, 6}}}, 2},
                 {"restore_service", {{}, {}, {{2}}}, 1},
                 {"ignore_service", {true, {}, {{1}}}, 1},
                 {"ignore_other", {true, {}, {{1}}}, 0}};
    for (const auto& row : table) {
        host::Message request(row.operation);
        const unsigned char flag = 1;
        const auto add = [&request](unsigned type, const void* value) {
            request.params()->add(host::Param::make(type, value, false).release());
        };
        if (row.arguments.flag) {
            add(rpc::T_BOOL, &flag);
        }
        if (row.arguments.value) {
            add(rpc::T_UINT32, &*row.arguments.value);
        }
        if (row.arguments.ids) {
            add(rpc::T_UINT32_LIST, &*row.arguments.ids);
        }
        const auto block = host::make_call_block(request);
        call(row.operation, row.arguments); // what is made once is made
        std::string failed = "none yet";
        for (int n = 1; !failed.empty(); ++n) {
            reset_conf();
            fake::xml_calls = Calls();
            const long alive = allocations::live();
            {
                fake::Command command;
                fwbase::IDataBlock* out = nullptr;
                fake::rpc_faults.arm(n);
                const ec::EC code = m_interface.call_func(block.get(), out, &command);
                failed = fake::rpc_faults.failed();
                fake::rpc_faults.arm(0);
                const owned<fwbase::IDataBlock> reply(out);
                const std::string where =
                    row.operation + (", call " + std::to_string(n) + ": ") + failed;
                const bool before_items = failed == "new_request" || failed == "read";
                const bool in_item = !before_items && !failed.empty() &&
                                     command.attempts < row.items + (failed == "reply");
                const bool in_last = !failed.empty() && !in_item && failed != "reply";
                EXPECT_EQ(code, in_last ? code_of_failed_call(failed) : rpc::result::success)
                    << where;
                EXPECT_EQ(reply == nullptr, in_last) << where;
                EXPECT_EQ(command.replies.size(), before_items
                                                      ? 0U
                                                      : static_cast<std::size_t>(row.items) -
                                                            (failed.empty() || in_last ? 0 : 1));
            }
            fake::xml_calls = Calls();
            EXPECT_EQ(allocations::live(), alive) << row.operation << n;
        }
    }
    EXPECT_TRUE(fake::log_entries.empty());
}

TEST_F(InterfaceTest, ReplyOperationsSurviveEveryFailureOfTheFramework)
{
    for (const ec::EC code : {0x80000000U, 0U}) {
        std::string failed = "none yet";
        for (int n = 1; !failed.empty(); ++n) {
            const long alive = allocations::live();
            {
                auto items = two_items();
                std::vector<unsigned int> ids = {1, 2};
                fake::Command command;
                fake::rpc_faults.arm(n);
                const ec::EC listed = m_interface.ret_ls_service(&command, code, items);
                failed = fake::rpc_faults.failed();
                EXPECT_EQ(listed, failed.empty() ? 0x80000000 : code_of_failed_call(failed));
                for (const rpc::SystemOptimize_Item& item : items) {
                    EXPECT_TRUE(item.name == nullptr && item.desc == nullptr);
                }
                EXPECT_EQ(items.empty(), failed.empty() || failed == "reply" ||
                                             (code == 0 && failed != "new_reply"));
                if (failed.empty()) {
                    fake::rpc_faults.arm(0);
                    EXPECT_EQ(outputs(*command.replies[0]), code == 0 ? "" : " list 1ax0 2by1");
                }
                fake::rpc_faults.arm(n);
                m_interface.ret_ignore_reg(&command, code, ids);
                EXPECT_EQ(ids.empty(), code != 0 && (fake::rpc_faults.failed().empty() ||
                                                     fake::rpc_faults.failed() == "reply"));
                fake::rpc_faults.arm(0);
            }
            EXPECT_EQ(allocations::live(), alive) << n;
        }
    }
    fake::Command command;
    rpc::int32 value = 42;
    EXPECT_EQ(m_interface.ret_get_optimize_num(&command, 0x80000000, value), 0x80000000);
    EXPECT_EQ(m_interface.ret_set_optimize_sorce(&command, 0x80000000), 0x80000000);
    EXPECT_EQ(outputs(*command.replies[0]) + outputs(*command.replies[1]), " =42");
}

TEST_F(InterfaceTest, NeverDeliversAReplyOf65520Bytes)
{
    fake::Command command;
    auto items = two_items();
    m_interface.ret_ls_reg(&command, 0x80000000, items);
    const std::size_t rest = command.replies[0]->size() - 1;
    for (const std::uint32_t mask : {8U, ~8U}) {
        fwbase::IRunLog::ms_type_sign = mask;
        for (const std::size_t size : {65519U, 65520U, 70000U}) {
            fake::log_entries.clear();
            items = two_items(size - rest);
            const bool fits = size == 65519;
            command.replies.clear();
            EXPECT_EQ(m_interface.ret_ls_reg(&command, 0x80000000, items),
                      fits ? 0x80000000 : 0x840C000C);
            EXPECT_EQ(command.replies.size(), fits ? 1U : 0U);
            rpc::ItemStringsGuard::free_strings(items); // there must be none left
            ASSERT_EQ(fake::log_entries.size(), fits || mask != 8 ? 0U : 1U);
            if (!fake::log_entries.empty()) {
                const fake::LogEntry& entry = fake::log_entries[0];
                EXPECT_EQ(entry.type, 8U);
                EXPECT_EQ(entry.text, "\xC7\xEB\xC7\xF3\xB0\xFC\xCA\xFD\xBE\xDD\xB3\xAC\xB3\xA4:" +
                                          std::to_string(size) + "(B)");
                char self[32];
                std::snprintf(self, sizeof self, "this(0x%zx) ",
                              reinterpret_cast<std::size_t>(&m_interface));
                EXPECT_EQ(entry.where.rfind(self, 0), 0U) << entry.where;
                EXPECT_THAT(
                    entry.where,
                    testing::ContainsRegex(
                        "ec::EC rpc::CIfaceRealize_Optimize_Option::ret_ls_reg\\("
                        "rpc::ICommand\\*, ec::EC, "
                        "std::vector<rpc::SystemOptimize_Item>&\\) system_option_s\\([0-9]+\\) "
                        "CT:[A-Z][a-z]+ +[0-9]+ [0-9]+ [0-9]+:[0-9]+:[0-9]+$"));
            }
        }
    }
    // Without memory for the text there is no entry; without memory for the place it has none.
    fwbase::IRunLog::ms_type_sign = 8;
    const struct {
        int failing;
        std::vector<std::string> places;
    } table[] = {{1, {}}, {2, {"(null)"}}};
    for (const auto& row : table) {
        fake::log_entries.clear();
        items = two_items(70000);
        allocations::fail_nothrow(row.failing);
        EXPECT_EQ(m_interface.ret_ls_reg(&command, 0x80000000, items), 0x840C000C);
        allocations::fail_nothrow(0);
        ASSERT_EQ(fake::log_entries.size(), row.places.size());
        EXPECT_TRUE(row.places.empty() || fake::log_entries[0].where == row.places[0]);
    }
}

TEST_F(InterfaceTest, CutsLogTextsToTheirBuffer)
{
    for (const int length : {1021, 1022, 1023, 5000}) {
        const std::unique_ptr<char[]> text(fwbase::IRunLog::FormatStr(
            "%s", std::string(static_cast<std::size_t>(length), 'x').c_str()));
        EXPECT_EQ(std::string(text.get()),
                  std::string(static_cast<std::size_t>(std::min(length, 1022)), 'x'));
    }
}

} // namespace
