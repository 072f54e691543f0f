// The interface object: from call block to reply block, and what is left when the framework fails.
#include "host/call.h"
#include "host/framework.h"
#include "rpc/result_codes.h"
#include "rpc/system_option_s.h"
#include "tests/fake_framework.h"
#include "tests/workspace.h"

#include <gmock/gmock.h>
#include <map>

namespace
{

using fake::Command;
using testing::HasSubstr;
using Items = std::vector<rpc::SystemOptimize_Item>;
using Ids = std::vector<unsigned int>;

constexpr ec::EC success = 0x80000000;

class InterfaceTest : public Workspace
{
protected:
    InterfaceTest()
    {
        install_stand_ins();
        write("listing",
              "a\t0:off\t1:off\t2:on\t3:on\nb\t0:off\n\nxinetd based services:\n\tx:\ton\n");
        reset_conf();
        EXPECT_EQ(m_interface.init(nullptr), success);
        fake::run_log.clear();
    }
    ~InterfaceTest() override
    {
        m_interface.release();
        EXPECT_EQ(host::rpc_references(), 0);
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

    /// A call block with a parameter per letter: flag, value, ids or text.
    static owned<fwbase::IDataBlock> block_of(const char* operation, const std::string& inputs)
    {
        static const unsigned char flag = 2;
        static const rpc::int32 value = 7;
        static const Ids ids = {1, 6, 2};
        static const std::string text(300, 'x');
        const std::map<char, std::pair<unsigned, const void*>> params = {
            {'f', {rpc::T_BOOL, &flag}},
            {'v', {rpc::T_UINT32, &value}},
            {'i', {rpc::T_UINT32_LIST, &ids}},
            {'t', {rpc::T_STRING, &text}}};
        host::Message request(operation);
        for (const char input : inputs) {
            const auto& [type, object] = params.at(input);
            request.params()->add(host::Param::make(type, object, false).release());
        }
        return host::make_call_block(request);
    }

    ec::EC run(const owned<fwbase::IDataBlock>& in, Command& command)
    {
        fwbase::IDataBlock* out = nullptr;
        const ec::EC code = m_interface.call_func(in.get(), out, &command);
        const owned<fwbase::IDataBlock> reply(out);
        EXPECT_EQ(reply != nullptr, ec::succeeded(code));
        return code;
    }
    ec::EC run(const owned<fwbase::IDataBlock>& in)
    {
        Command command;
        return run(in, command);
    }
    std::string call(const std::string& line) { return ::call(m_interface, line); }

    static Items two_items(std::size_t length = 1)
    {
        return {{1, new std::string("a"), new std::string(length, 'x'), 0},
                {2, new std::string("b"), new std::string("y"), 1}};
    }

    rpc::CIfaceRealize_Optimize_Option m_interface;
};

TEST_F(InterfaceTest, DescribesItself)
{
    EXPECT_EQ(rpc_ireal_Optimize_Option(), rpc_ireal_Optimize_Option());
    const auto& attributes = *m_interface.iatt();
    EXPECT_EQ(attributes.name + attributes.id + attributes.desc + attributes.extra,
              "Optimize_Option8e926ff4-176f-439f-9349-683eefb42ech"
              "\xB2\xD9\xD7\xF7\xCF\xB5\xCD\xB3\xD3\xC5\xBB\xAF");

    EXPECT_EQ(m_interface.init(nullptr), success); // keeps one reference
    EXPECT_EQ(host::rpc_references(), 1);
    ex_std::vector<const rpc::IIfaceRealize::FAtt*> list(3);
    EXPECT_EQ(m_interface.fatts(list), 0x840C0000);
    std::string names;
    for (const auto* const operation : list) {
        names += operation->name + operation->extra + " ";
    }
    EXPECT_EQ(names, "get_optimize_num get_optimize_sorce ignore_other ignore_reg ignore_service "
                     "ls_other ls_reg ls_service optimize_other optimize_reg optimize_service "
                     "restore_other restore_reg restore_service set_optimize_sorce ");
    m_interface.release();
    EXPECT_EQ(m_interface.fatts(list), 0x840C0000);
    EXPECT_TRUE(list.empty());

    // A host without the RPC service, or without memory for the service object.
    fake::rpc_faults = {1, {}, 0};
    EXPECT_EQ(m_interface.init(nullptr), 0x04010001U);
    fake::memory_faults = {1, {}, 0};
    EXPECT_EQ(m_interface.init(nullptr), 0U);
    EXPECT_EQ(host::rpc_references(), 0);
}

TEST_F(InterfaceTest, FindsTheBodyAndTheName)
{
    host::Message request("get_optimize_num");
    std::string body(request.size(), '\0');
    request.write(reinterpret_cast<unsigned char*>(body.data()), request.size());
    const std::string head("\1\2\0\3", 4);
    const std::string extended("\1\2\xFF\3");
    for (const auto& [bytes, right] :
         std::map<std::string, bool>{{head + body, true},
                                     {extended + std::string(255, 'e') + body, true},
                                     {extended + body, false},
                                     {head + body + "x", false},
                                     {head, false},
                                     {head.substr(0, 3), false},
                                     {"", false}}) {
        fwbase::IDataBlock* block = nullptr;
        host::framework().mem_manager()->new_block(block, static_cast<std::uint32_t>(bytes.size()));
        const owned<fwbase::IDataBlock> in(block);
        std::copy(bytes.begin(), bytes.end(), in->buffer());
        EXPECT_EQ(run(in), right ? 0x840C0000 : 0x040C000A) << bytes.size();
    }
    for (const char* const name : {"LS_SERVICE", "ls_service ", "ls_servic", ""}) {
        EXPECT_EQ(run(block_of(name, "")), 0x040C0001) << name;
    }
}

TEST_F(InterfaceTest, TakesEachOperationsParameters)
{
    using Cases = std::vector<std::pair<const char*, const char*>>;
    for (const auto& [operation, inputs] : Cases{{"set_optimize_sorce", ""},
                                                 {"set_optimize_sorce", "t"},
                                                 {"set_optimize_sorce", "f"},
                                                 {"optimize_service", ""},
                                                 {"optimize_service", "v"},
                                                 {"restore_reg", "t"},
                                                 {"ignore_service", ""},
                                                 {"ignore_service", "f"},
                                                 {"ignore_service", "i"},
                                                 {"ignore_reg", "fv"}}) {
        EXPECT_EQ(run(block_of(operation, inputs)), 0x040C0005) << operation << inputs;
    }
    for (const auto& [operation, inputs] : Cases{{"set_optimize_sorce", "vt"},
                                                 {"optimize_other", "i"},
                                                 {"ignore_reg", "ti"},
                                                 {"ignore_service", "vi"},
                                                 {"ls_service", ""}}) {
        EXPECT_EQ(run(block_of(operation, inputs)), 0x840C0000) << operation << inputs;
    }
    EXPECT_THAT(read(conf_path), HasSubstr("<optimize_sorce>7<"));
}

TEST_F(InterfaceTest, AnswersEachOperation)
{
    EXPECT_EQ(call("ls_service"),
              "item list 1 0 a d; item list 2 1 b d; item list 3 2 x d; item list 4 0 a d; "
              "item list 4294967295 0 x d; item list 6 0 x d; 80000000 list");
    write("listing", "");
    EXPECT_EQ(call("ls_service"), "80000000 list");
    EXPECT_THAT(read(conf_path), HasSubstr("id=\"2\" name=\"b\" op=\"3\" level=\"35\""));
    EXPECT_EQ(call("get_optimize_sorce"), "80000000 =85");
    EXPECT_EQ(call("set_optimize_sorce 4294967295"), "80000000");
    EXPECT_EQ(call("get_optimize_sorce"), "80000000 =2147483647"); // as far as an int goes
    EXPECT_EQ(call("get_optimize_num"), "80000000 =3");

    const std::string before = read(conf_path);
    for (const std::string kind : {"reg", "other"}) {
        EXPECT_EQ(call("ls_" + kind), "80000000 list");
        EXPECT_EQ(call("optimize_" + kind + " 1 2"), "80000000 ids");
        EXPECT_EQ(call("restore_" + kind + " 1 2"), "80000000 ids");
        EXPECT_EQ(call("ignore_" + kind + " on 1 2"), "80000000 ids");
    }
    EXPECT_EQ(read(conf_path), before);

    write(conf_path, "<kavra_conf>");
    for (const char* const line : {"get_optimize_sorce", "get_optimize_num", "ls_service",
                                   "set_optimize_sorce 1", "ignore_service on 1"}) {
        EXPECT_EQ(call(line), "00000000");
    }
    EXPECT_EQ(read("ran"), "");
}

TEST_F(InterfaceTest, MovesServicesBetweenStates)
{
    const std::string A = "chkconfig --level 23 a off\n";
    const std::string B = "chkconfig --level 35 b on\n";
    const std::string X = R"(sed -i s/\(^.*disable.*=.*\)\( .*$\)/\1 yes/g /etc/xinetd.d/x)"
                          "\n";
    const struct {
        const char* line;
        const char* failing;
        std::string commands;
        std::vector<const char*> done;
        const char* states; // of 1, 2, 3, 4, -1 and 6
    } table[] = {{"optimize_service", "", "", {}, "012300"},
                 {"optimize_service 1", "", A, {"1"}, "112300"},
                 {"optimize_service 5 2 3 4 99", "", "", {}, "012300"},
                 {"optimize_service 1 1", "", A + A, {"1", "1"}, "112300"},
                 {"optimize_service 4294967295 1", "", X + A, {"4294967295", "1"}, "112310"},
                 {"optimize_service 6", "", "", {"6"}, "012301"}, // level "off"
                 {"optimize_service 4294967295 1", "xinetd", X + A, {"1"}, "112300"},
                 {"optimize_service 1", " a off", A, {}, "012300"},
                 {"restore_service 1 3 4", "", "", {}, "012300"},
                 {"restore_service 2", "", B, {"2"}, "002300"},
                 {"restore_service 2", "level", B, {}, "012300"},
                 {"ignore_service on 6 2 3 1", "", "", {"6", "1"}, "212302"},
                 {"ignore_service off 1 2 3 4", "", "", {"3"}, "010300"}};
    for (const auto& row : table) {
        SCOPED_TRACE(row.line);
        reset_conf();
        const std::string before = read(conf_path);
        write("ran", "");
        write("failing", row.failing);
        std::string replies;
        for (const std::string id : row.done) {
            replies += "item ids " + id + "; ";
        }
        EXPECT_EQ(call(row.line), replies + "80000000 ids");
        EXPECT_EQ(read("ran"), row.commands);
        const std::string after = read(conf_path);
        std::string states;
        for (std::size_t at = 0; (at = after.find("op=", at)) != std::string::npos; at += 5) {
            states += after[at + 4];
        }
        EXPECT_EQ(states, row.states);
        EXPECT_EQ(after == before, row.done.empty()); // nothing handled, nothing saved
    }

    reset_conf(); // the switch succeeds, the save fails
    write("bin/chkconfig",
          "#!/bin/sh\n"
          "[ \"$1\" = --list ] && cat listing || mkdir config/system_operation/.conf.xml.tmp\n");
    EXPECT_EQ(call("optimize_service 1"), "00000000");
    EXPECT_THAT(read(conf_path), HasSubstr("id='1' name='a' op='0'"));
    ASSERT_EQ(std::system("rmdir config/system_operation/.conf.xml.tmp"), 0);
    write("listing", "a\t0:off\n");
    EXPECT_EQ(call("ls_service"), "80000000 list");
    EXPECT_THAT(read(conf_path), HasSubstr("id=\"1\" name=\"a\" op=\"3\" level=\"off\""));
}

TEST_F(InterfaceTest, HandlersSurviveEveryFailureOfTheFramework)
{
    const struct {
        const char* operation;
        const char* inputs;
        std::size_t items;
    } table[] = {{"get_optimize_sorce", "", 0}, {"set_optimize_sorce", "v", 0},
                 {"ls_service", "", 6},         {"ls_reg", "", 0},
                 {"optimize_service", "i", 2},  {"restore_service", "i", 1},
                 {"ignore_service", "fi", 2},   {"ignore_other", "fi", 0}};
    for (const auto& row : table) {
        SCOPED_TRACE(row.operation);
        const auto block = block_of(row.operation, row.inputs);
        run(block); // what is made once is made
        fake::sweep(fake::rpc_faults, [&] {
            reset_conf();
            Command command;
            const ec::EC code = run(block, command);
            const std::string_view failed = fake::rpc_faults.failed;
            const bool at_once = failed == "new_request";
            const bool in_item =
                !at_once && !failed.empty() && command.attempts < row.items + (failed == "reply");
            EXPECT_EQ(code, failed.empty() || in_item ? 0x840C0000 : fake::rpc_faults.code);
            EXPECT_EQ(command.replies.size(), at_once ? 0 : row.items - in_item) << failed;
        });
    }
    EXPECT_EQ(fake::run_log, "");
}

TEST_F(InterfaceTest, ReplyOperationsSurviveEveryFailureOfTheFramework)
{
    for (const ec::EC code : {success, ec::EC{0}}) {
        fake::sweep(fake::rpc_faults, [&] {
            Items items = two_items();
            Command command;
            const ec::EC sent = m_interface.ret_ls_service(&command, code, items);
            const std::string_view failed = fake::rpc_faults.failed;
            const bool encoded = failed.empty() || failed == "reply";
            EXPECT_EQ(sent, failed.empty() ? success : fake::rpc_faults.code);
            for (const rpc::SystemOptimize_Item& item : items) {
                EXPECT_TRUE(item.name == nullptr && item.desc == nullptr);
            }
            EXPECT_EQ(items.empty(), encoded || (code == 0 && failed != "new_reply"));
            for (const owned<host::Message>& reply : command.replies) {
                EXPECT_EQ(outputs(*reply), code == 0 ? "" : " list 1 0 a x 2 1 b y");
            }
        });
        fake::sweep(fake::rpc_faults, [&] {
            Ids ids = {1, 2};
            Command command;
            const ec::EC sent = m_interface.ret_ignore_reg(&command, code, ids);
            EXPECT_EQ(ids.empty(), code != 0 && (ec::succeeded(sent) || sent == 0));
        });
    }
    fake::sweep(fake::exhaustion, [&] {
        const fake::Faults armed = std::exchange(fake::exhaustion, {});
        Items items = two_items();
        Command command;
        fake::exhaustion = armed;
        try {
            m_interface.ret_ls_service(&command, success, items);
        } catch (const std::bad_alloc&) { // passes through to the host
        }
        fake::exhaustion.left = 0;
    });
    Command command;
    rpc::int32 value = 42;
    EXPECT_EQ(m_interface.ret_get_optimize_num(&command, success, value), success);
    EXPECT_EQ(m_interface.ret_set_optimize_sorce(&command, success), success);
    EXPECT_EQ(outputs(*command.replies.at(0)) + outputs(*command.replies.at(1)), " =42");
}

TEST_F(InterfaceTest, NeverDeliversAReplyOf65520Bytes)
{
    Command first;
    Items items = two_items(0);
    m_interface.ret_ls_reg(&first, success, items);
    const std::size_t rest = first.replies.at(0)->size();
    const std::string head = "8 \xC7\xEB\xC7\xF3\xB0\xFC\xCA\xFD\xBE\xDD\xB3\xAC\xB3\xA4:";
    const std::string place =
        "this\\(" + testing::PrintToString(static_cast<void*>(&m_interface)) +
        "\\) ec::EC rpc::CIfaceRealize_Optimize_Option::ret_ls_reg\\(rpc::ICommand\\*, ec::EC, "
        "std::vector<rpc::SystemOptimize_Item>&\\) system_option_s\\([0-9]+\\) "
        "CT:[A-Z][a-z]+ +[0-9]+ [0-9]+ [0-9]+:[0-9]+:[0-9]+";
    const struct {
        std::size_t size;
        std::uint32_t mask;
        int failing; // allocation: of the entry's text or of its place
        std::string log;
    } table[] = {{65519, 8, 0, ""},
                 {65520, 8, 0, head + "65520\\(B\\) \\[" + place + "\\]\n"},
                 {65520, ~8U, 0, ""},
                 {70000, 8, 1, ""},
                 {70000, 8, 2, head + "70000\\(B\\) \\[null\\]\n"}};
    for (const auto& row : table) {
        fwbase::IRunLog::ms_type_sign = row.mask;
        fake::run_log.clear();
        items = two_items(row.size - rest);
        Command command;
        fake::memory_faults = {row.failing, {}, 0};
        const ec::EC sent = m_interface.ret_ls_reg(&command, success, items);
        EXPECT_EQ(sent, row.size == 65519 ? success : 0x840C000C);
        EXPECT_EQ(command.replies.size(), row.size == 65519 ? 1U : 0U);
        EXPECT_TRUE(items.empty() || items[0].name == nullptr);
        EXPECT_THAT(fake::run_log, testing::MatchesRegex(row.log));
    }
    fwbase::IRunLog::ms_type_sign = 8;
    for (const std::size_t length : {1022U, 1023U, 5000U}) {
        const std::string text(length, 'x');
        const std::unique_ptr<char[]> cut(fwbase::IRunLog::FormatStr("%s", text.c_str()));
        EXPECT_EQ(cut.get(), text.substr(0, 1022));
    }
}

} // namespace
