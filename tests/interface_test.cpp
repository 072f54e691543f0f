// The interface object: from call block to reply block, and what is left when the framework fails.
#include "host/printer.h"
#include "rpc/system_option_s.h"
#include "tests/fake_framework.h"

#include <gmock/gmock.h>
#include <map>
#include <nlohmann/json.hpp>
#include <numeric>

namespace
{

using testing::HasSubstr;
using Items = std::vector<rpc::SystemOptimize_Item>;
using Ids = std::vector<unsigned int>;

constexpr ec::EC success = 0x80000000;

/// Takes replies, or refuses them.
struct Command final : rpc::ICommand {
    ec::EC reply(ec::EC code, fwbase::IDataBlock* block) override
    {
        const owned<fwbase::IDataBlock> taken(block);
        last = owned<fwbase::Message>(new fwbase::Message(""));
        EXPECT_NE(last->read(block->data(), block->size()), 0);
        return fake::rpc_faults.strike("reply") ? 0 : code;
    }

    owned<fwbase::Message> last;
};

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
        EXPECT_EQ(fake::rpc_references, 0);
    }

    static void reset_conf()
    {
        write_conf("<info id='1' name='a' op='0' level='23' xinetd='0' desc='d'/>"
                   "<info id='2' name='b' op='1' level='35' xinetd='0' desc='d'/>"
                   "<info id='3' name='x' op='2' level='on' xinetd='1' desc='d'/>"
                   "<info id='1' name='a' op='3' level='off' xinetd='0' desc='d'/>"
                   "<info id='-1' name='x' op='0' level='on' xinetd='1' desc='d'/>"
                   "<info id='6' name='x' op='0' level='off' xinetd='1' desc='d'/>"
                   "<info id='6' name='b' op='0' level='on' xinetd='0' desc='d'/>"
                   "<info id='7' name='x' op='1' level='off' xinetd='1' desc='d'/>"
                   "<info id='8' name='c' op='1' level='off' xinetd='0' desc='d'/>");
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
    const auto& attributes = *rpc_ireal_Optimize_Option()->iatt();
    EXPECT_EQ(rpc_ireal_Optimize_Option()->init(nullptr), success);
    EXPECT_EQ(attributes.name + attributes.id + attributes.desc + attributes.extra,
              "Optimize_Option8e926ff4-176f-439f-9349-683eefb42ech"
              "\xB2\xD9\xD7\xF7\xCF\xB5\xCD\xB3\xD3\xC5\xBB\xAF");
    rpc_ireal_Optimize_Option()->release();

    EXPECT_EQ(m_interface.init(nullptr), success); // keeps one reference
    EXPECT_EQ(fake::rpc_references, 1);
    ex_std::vector<const rpc::IIfaceRealize::FAtt*> list(3);
    EXPECT_EQ(m_interface.fatts(list), 0x840C0000);
    EXPECT_EQ(list.at(14)->name + list.back()->extra, "set_optimize_sorce"); // the last by name
    m_interface.release();
    EXPECT_TRUE(m_interface.fatts(list) == 0x840C0000 && list.empty());

    // A host without the RPC service, or without memory for the service object.
    fake::rpc_faults = {1, {}, 0};
    EXPECT_EQ(m_interface.init(nullptr), 0x04010001U);
    fake::memory_faults = {1, {}, 0};
    EXPECT_EQ(m_interface.init(nullptr), 0U);
    EXPECT_EQ(fake::rpc_references, 0);
}

TEST_F(InterfaceTest, ReadsCallBlocks)
{
    const auto block = host::make_call_block({"ignore_reg", {true, {}, Ids{1, 2}}});
    const std::string right(block->data(), block->data() + block->size());
    const std::string body = right.substr(4);
    const std::string extension(255, 'e');
    std::map<std::string, ec::EC> table = {{right, 0x840C0000},
                                           {"\1\2\xFF\3" + extension + body, 0x840C0000},
                                           {"\1\2\xFF\3" + body, 0x040C000A},
                                           {right + "x", 0x040C000A}};
    for (std::size_t size = 0; size < right.size(); ++size) {
        table[right.substr(0, size)] = 0x040C000A;
    }
    const std::pair<const char*, std::size_t> refused[] = {
        {"Q\2\0a\0\0\0\0\0", 9},                                // a NUL in the name
        {"Q\0\0\xFF\xFF\xFF\1\7\0\0\0\0", 12},                  // too many parameters
        {"Q\0\0\1\0\0\0\x8\xFF\xFF\xFF\1\0", 13},               // numbers
        {"Q\0\0\1\0\0\0\xD\xFF\xFF\xFF\1\0", 13},               // characters
        {"Q\0\0\1\0\0\0\x63\0\0\0\0", 12},                      // no type
        {"Q\0\0\1\0\0\0\x10\1\0\0\0\1\0\0\0\x10\0\0\0\0", 21}}; // records in a record
    for (const auto& [bytes, size] : refused) {
        table[std::string(4, '\0') + std::string(bytes, size)] = 0x040C000A;
    }
    for (const auto& [bytes, code] : table) {
        fwbase::IDataBlock* out = nullptr;
        fake::largest_object = 0; // a claimed count alone allocates nothing
        EXPECT_EQ(m_interface.call_func(raw_block(bytes).get(), out, nullptr), code) << bytes;
        EXPECT_LT(fake::largest_object, 1000U);
        EXPECT_EQ(owned<fwbase::IDataBlock>(out) != nullptr, ec::succeeded(code));
    }
}

TEST_F(InterfaceTest, AnswersEachOperation)
{
    const std::pair<const char*, const char*> table[] = {
        {"ls_service", "1 a 0 none d 2 b 1 optimized d 3 x 2 ignored d 1 a 0 none d "
                       "4294967295 x 0 none d 6 x 0 none d 7 x 0 none d success"},
        {"get_optimize_sorce", "85 success"},
        {"set_optimize_sorce 4294967295", "success"},
        {"get_optimize_sorce", "2147483647 success"}, // as far as an int goes
        {"LS_SERVICE", "no reply (result 0x040C0001)"}};
    for (const auto& [line, answer] : table) {
        EXPECT_EQ(call(line), answer) << line;
    }
    // Parameters that are missing, of another type, or more than are taken.
    const char* const missing = "no reply (result 0x040C0005)";
    const Ids ids = {1};
    const struct {
        const char* operation;
        host::Arguments arguments; // a flag, a number, ids
        const char* answer;
    } calls[] = {{"set_optimize_sorce", {}, missing},
                 {"set_optimize_sorce", {true, {}, {}}, missing},
                 {"set_optimize_sorce", {{}, 7, ids}, "success"},
                 {"optimize_service", {}, missing},
                 {"restore_service", {{}, 7, {}}, missing},
                 {"ignore_service", {true, {}, {}}, missing},
                 {"ignore_service", {true, 7, {}}, missing},
                 {"ignore_service", {{}, {}, ids}, missing},
                 {"ignore_service", {{}, 256, ids}, "success"}, // by its first byte: off
                 {"ignore_service", {{}, 2, ids}, "1 success"}};
    for (const auto& [operation, arguments, answer] : calls) {
        EXPECT_EQ(::call(m_interface, {operation, arguments}), answer);
    }
    write("listing", "");
    EXPECT_EQ(call("ls_service"), "success");
    EXPECT_THAT(read(conf_path), HasSubstr("id=\"2\" name=\"b\" op=\"3\" level=\"35\""));
    EXPECT_EQ(read("ran"), "");

    write(conf_path, "<kavra_conf>");
    for (const char* const line : {"get_optimize_num", "ls_service", "ignore_service on 1"}) {
        EXPECT_EQ(call(line), "failure");
    }
}

TEST_F(InterfaceTest, MovesServicesBetweenStates)
{
    const std::string A = "chkconfig --level 23 a off\ndone\n";
    const std::string B = "chkconfig --level 35 b on\ndone\n";
    const std::string C = "chkconfig --level off c on\ndone\n";
    const std::string sed = R"(sed -i s/\(^.*disable.*=.*\)\( .*$\)/\1 )";
    const std::string X = sed + "yes/g /etc/xinetd.d/x\ndone\n";
    const std::string Y = sed + "no/g /etc/xinetd.d/x\ndone\n";
    const struct {
        const char* line;
        const char* failing;
        std::string commands;
        const char* answer;
        const char* states; // of 1, 2, 3, 1, -1, 6, 6, 7 and 8
    } table[] = {{"optimize_service 5 2 3 4 99", "", "", "success", "012300011"},
                 {"optimize_service 1 1", "", A + A, "1 1 success", "112300011"},
                 {"optimize_service 4294967295 1", "", X + A, "4294967295 1 success", "112310011"},
                 {"optimize_service 6", "", "", "6 success", "012301111"}, // level "off"
                 {"optimize_service 4294967295 1", "xinetd", X + A, "1 success", "112300011"},
                 {"restore_service 1 3 4", "", "", "success", "012300011"},
                 {"restore_service 2", "", B, "2 success", "002300011"},
                 {"restore_service 2", "level", B, "success", "012300011"},
                 {"restore_service 7 8", "level", Y + C, "7 success", "012300001"},
                 {"ignore_service on 6 2 3 1", "", "", "6 1 success", "212302211"},
                 {"ignore_service off 1 2 3 4", "", "", "3 success", "010300011"}};
    for (const auto& row : table) {
        SCOPED_TRACE(row.line);
        reset_conf();
        const std::string before = read(conf_path);
        write("ran", "");
        write("failing", row.failing);
        testing::internal::CaptureStdout();
        EXPECT_EQ(call(row.line), row.answer);
        EXPECT_EQ(read("ran"), row.commands);
        std::string printed = testing::internal::GetCapturedStdout();
        printed.erase(std::remove(printed.begin(), printed.end(), '\''), printed.end());
        EXPECT_EQ(printed, row.commands); // each before it ran
        const std::string after = read(conf_path);
        std::string states;
        for (std::size_t at = 0; (at = after.find("op=", at)) != std::string::npos; at += 5) {
            states += after[at + 4];
        }
        EXPECT_EQ(states, row.states);
        EXPECT_EQ(after == before, row.answer == std::string("success")); // else nothing is saved
    }

    reset_conf(); // the switch succeeds, the save fails
    write("bin/chkconfig", "#!/bin/sh\n[ $1 = --list ] && echo 'a 0:off' || mkdir "
                           "config/system_operation/.conf.xml.tmp");
    EXPECT_EQ(call("optimize_service 1"), "failure");
    EXPECT_THAT(read(conf_path), HasSubstr("id='1' name='a' op='0'"));
    ASSERT_EQ(std::remove("config/system_operation/.conf.xml.tmp"), 0);
    EXPECT_EQ(call("ls_service"), "success");
    EXPECT_THAT(read(conf_path), HasSubstr("id=\"1\" name=\"a\" op=\"3\" level=\"off\""));
}

TEST_F(InterfaceTest, HandlersSurviveEveryFailureOfTheFramework)
{
    for (const char* const line : {"get_optimize_sorce", "set_optimize_sorce 7", "ls_service",
                                   "ls_reg", "optimize_service 1 6 2", "restore_service 2",
                                   "ignore_service on 1 6", "ignore_reg on 1"}) {
        SCOPED_TRACE(line);
        const auto block = host::make_call_block(host::to_call(host::split(line)));
        const auto run = [&](std::size_t& sent) {
            reset_conf();
            ec::EC code = 0;
            host::run_call(
                m_interface, *block, [&sent](const auto&) { ++sent; }, code);
            return code;
        };
        std::size_t items = 0;
        EXPECT_EQ(run(items), 0x840C0000);
        fake::sweep(fake::rpc_faults, [&] {
            std::size_t sent = 0;
            const ec::EC code = run(sent);
            const std::string_view failed = fake::rpc_faults.failed;
            const bool at_once = failed == "new_request";
            const bool in_item = !at_once && !failed.empty() && sent < items;
            EXPECT_EQ(code, failed.empty() || in_item ? 0x840C0000 : fake::rpc_faults.code);
            EXPECT_EQ(sent, at_once ? 0 : items - (in_item ? 1 : 0)) << failed;
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
            ASSERT_EQ(command.last != nullptr, encoded);
            EXPECT_TRUE(!encoded || command.last->all().size() == (code == 0 ? 0 : 1));
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
    EXPECT_EQ(command.last->all().at(0)->number(), 42U);
    EXPECT_EQ(m_interface.ret_set_optimize_sorce(&command, success), success);
    EXPECT_TRUE(command.last->all().empty());
    Ids ids = {1};
    EXPECT_EQ(m_interface.ret_ignore_reg(&command, 0, ids), success);
    EXPECT_EQ(ids.size(), 1U); // cleared after a success alone
    EXPECT_EQ(m_interface.ret_ignore_reg(&command, success, ids), success);
    EXPECT_TRUE(ids.empty());
}

TEST_F(InterfaceTest, NeverDeliversAReplyOf65520Bytes)
{
    const std::size_t rest = 65; // bytes of a reply with two_items(0)
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
        Items items = two_items(row.size - rest);
        Command command;
        fake::memory_faults = {row.failing, {}, 0};
        const ec::EC sent = m_interface.ret_ls_reg(&command, success, items);
        EXPECT_EQ(sent, row.size == 65519 ? success : 0x840C000C);
        EXPECT_EQ(command.last == nullptr, row.size != 65519);
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

TEST_F(InterfaceTest, PrintsAnyBytes)
{
    std::string bytes(256, '\0');
    std::iota(bytes.begin(), bytes.end(), '\1'); // NUL is the last
    Items items = {{1, new std::string(bytes), new std::string(bytes), 0}};
    Command command;
    m_interface.ret_ls_service(&command, success, items);
    for (const bool json : {true, false}) {
        char* text = nullptr;
        std::size_t size = 0;
        std::FILE* const out = open_memstream(&text, &size);
        (json ? host::json_printer(out) : host::table_printer(out, false))->item(*command.last);
        std::fclose(out);
        EXPECT_EQ(std::count_if(text, text + size, [](char c) { return c >= 0 && c < ' '; }),
                  json ? 1 : 2); // ends of lines
        EXPECT_TRUE(!json || nlohmann::json::parse(text)["services"].size() == 1) << text;
        std::free(text);
    }
}

} // namespace
