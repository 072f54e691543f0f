// The interface object: from call block to reply block, and what remains when the framework fails.
#include "framework/xml.h"
#include "host/module.h"
#include "rpc/system_option_s.h"
#include "tests/fake_framework.h"

using rpc::Ids;
using rpc::Items;
using testing::HasSubstr;
using namespace std::string_literals;

constexpr ec::EC success = 0x80000000;
constexpr ec::EC answered = 0x840C0000;
constexpr ec::EC missing_parameter = 0x040C0005;
constexpr ec::EC not_ready = 0x040C0008;

/// A call of every operation that works, in the order of their names.
static const char* const every_call[] = {
    "get_optimize_num", "get_optimize_sorce",   "ignore_other on 99",
    "ignore_reg on 99", "ignore_service on 99", "ls_other",
    "ls_reg",           "ls_service",           "optimize_other 99",
    "optimize_reg 99",  "optimize_service 99",  "restore_other 99",
    "restore_reg 99",   "restore_service 99",   "set_optimize_sorce 7"};

/// Keeps the last reply, or refuses replies.
struct ReplyRecorder final : rpc::ICommand {
    ec::EC reply(ec::EC code, fwbase::IDataBlock* block) override
    {
        const fake::Unlimited memory;
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
        write("listing",
              "a\t0:off\t1:off\t2:on\t3:on\nb\t0:off\n\nxinetd based services:\n\tx:\ton\n");
        reset_conf();
        EXPECT_EQ(code_of({"ls_reg", {}}), not_ready);
        EXPECT_EQ(m_interface.init(nullptr), success);
        fake::run_log.clear();
    }
    ~InterfaceTest() override
    {
        m_interface.release();
        EXPECT_EQ(fake::rpc_references, 0);
        EXPECT_EQ(fake::unsized_blocks, 0);
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
    /// The code of call_func. Replies are recorded but not kept.
    ec::EC code_of(const fwbase::IDataBlock& block, const std::string& name = "block")
    {
        ReplyRecorder command;
        fwbase::IDataBlock* out = nullptr;
        const ec::EC code = m_interface.call_func(&block, out, &command);
        EXPECT_EQ(owned<fwbase::IDataBlock>(out) != nullptr, code == answered) << name;
        return code;
    }
    ec::EC code_of(const host::Call& call)
    {
        return code_of(*host::make_call_block(call), call.operation);
    }
    std::vector<std::string> operations() const
    {
        ex_std::vector<const rpc::IIfaceRealize::FAtt*> list(3); // contents are replaced
        EXPECT_EQ(m_interface.fatts(list), answered);
        std::vector<std::string> names;
        for (const rpc::IIfaceRealize::FAtt* const operation : list) {
            names.push_back(operation->name);
            EXPECT_EQ(operation->extra, "") << operation->name;
        }
        return names;
    }

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
    const rpc::IIfaceRealize::IAtt& attributes = *m_interface.iatt();
    EXPECT_EQ(attributes.name, "Optimize_Option");
    EXPECT_EQ(attributes.id, "8e926ff4-176f-439f-9349-683eefb42ech");
    EXPECT_EQ(attributes.desc, "\xB2\xD9\xD7\xF7\xCF\xB5\xCD\xB3\xD3\xC5\xBB\xAF");
    EXPECT_EQ(attributes.extra, "");
    std::vector<std::string> names;
    for (const char* const line : every_call) {
        names.push_back(to_call(line).operation);
    }
    EXPECT_EQ(operations(), names);
}

TEST_F(InterfaceTest, IsReadyBetweenInitAndRelease)
{
    EXPECT_EQ(m_interface.init(nullptr), success); // a second init keeps one reference
    EXPECT_EQ(fake::rpc_references, 1);
    EXPECT_EQ(operations().size(), 15U);
    m_interface.release();
    EXPECT_EQ(code_of({"ls_reg", {}}), not_ready);
    EXPECT_EQ(operations().size(), 0U);

    fake::rpc_faults = {1, {}, 0}; // a host without the RPC service
    EXPECT_EQ(m_interface.init(nullptr), 0x04010001U);
    EXPECT_EQ(code_of({"ls_reg", {}}), not_ready);
    fake::memory_faults = {1, {}, 0}; // no memory for the service object
    EXPECT_EQ(m_interface.init(nullptr), 0U);
    EXPECT_EQ(code_of({"ls_reg", {}}), not_ready);

    EXPECT_EQ(m_interface.init(nullptr), success);
    fake::rpc_faults = {1, {}, 0};
    EXPECT_THROW(m_interface.release(), std::runtime_error);
    EXPECT_EQ(operations().size(), 0U);
    // The fixture's release must not give the service back again.
}

TEST_F(InterfaceTest, ReadsCallBlocks)
{
    const auto block = host::make_call_block({"ignore_reg", {true, {}, Ids{1, 2}}});
    const std::string right(block->data(), block->data() + block->size());
    const std::string body = right.substr(4);
    const std::string header(4, '\0');
    std::vector<std::string> refused = {
        "\1\2\xFF\3" + body,
        right + "x",
        header + "Q\2\0a\0\0\0\0\0"s,                               // a NUL in the name
        header + "Q\0\0\xFF\xFF\xFF\1\7\0\0\0\0"s,                  // too many parameters
        header + "Q\0\0\1\0\0\0\x8\xFF\xFF\xFF\1\0"s,               // numbers
        header + "Q\0\0\1\0\0\0\xD\xFF\xFF\xFF\1\0"s,               // characters
        header + "Q\0\0\1\0\0\0\x63\0\0\0\0"s,                      // no type
        header + "Q\0\0\1\0\0\0\x10\1\0\0\0\1\0\0\0\x10\0\0\0\0"s}; // records in a record
    for (std::size_t size = 0; size < right.size(); ++size) {
        refused.push_back(right.substr(0, size));
    }
    for (const std::string& bytes : refused) {
        const auto call = raw_block(bytes);
        fake::largest_object = 0; // a claimed count alone allocates nothing
        EXPECT_EQ(code_of(*call), 0x040C000AU) << testing::PrintToString(bytes);
        EXPECT_LT(fake::largest_object, 1000U) << testing::PrintToString(bytes);
    }
    const std::string extension(255, 'e');
    EXPECT_EQ(code_of(*raw_block("\1\2\xFF\3" + extension + body)), answered);
}

TEST_F(InterfaceTest, AnswersEachOperation)
{
    for (const char* const line : every_call) {
        host::Call call = to_call(line);
        const bool takes_none = call.operation == line;
        EXPECT_EQ(code_of(call), answered) << line;
        EXPECT_EQ(code_of({call.operation, {}}), takes_none ? answered : missing_parameter) << line;
        call.operation += ' ';
        EXPECT_EQ(code_of(call), 0x040C0001U) << line;
    }
    reset_conf();
    const std::pair<const char*, const char*> table[] = {
        {"ls_service", "1 a d 0 2 b d 1 3 x d 2 1 a d 0 4294967295 x d 0 6 x d 0 7 x d 0 success"},
        {"get_optimize_sorce", "85 success"},
        {"get_optimize_num", "3 success"},
        {"set_optimize_sorce 4294967295", "success"},
        {"get_optimize_sorce", "2147483647 success"}}; // clamped when it is read
    for (const auto& [line, answer] : table) {
        EXPECT_EQ(call(line), answer) << line;
    }

    for (const char* const line :
         {"set_optimize_sorce on", "restore_service on", "ignore_service on", "ignore_service 1"}) {
        EXPECT_EQ(code_of(to_call(line)), missing_parameter) << line;
    }
    EXPECT_EQ(code_of({"set_optimize_sorce", {{}, 7, Ids{1}}}), answered); // more than it takes
    for (const unsigned int flag : {256U, 2U}) {
        EXPECT_EQ(code_of({"ignore_service", {{}, flag, Ids{1}}}), answered) << flag;
    }
    EXPECT_THAT(read(conf_path), HasSubstr("name=\"a\" op=\"2\"")); // with the flag 2

    write(conf_path, "<kavra_conf>");
    for (const char* const line : {"get_optimize_num", "ls_service", "ignore_service on 1"}) {
        EXPECT_EQ(call(line), "failure") << line;
    }
}

TEST_F(InterfaceTest, MovesServicesBetweenStates)
{
    const std::string A = "chkconfig --level 23 a off\ndone\n";
    const std::string B = "chkconfig --level 35 b on\ndone\n";
    const std::string C = "chkconfig --level off c on\ndone\n";
    const std::string sed = R"(sed -i 's/\(^.*disable.*=.*\)\( .*$\)/\1 )";
    const std::string X = sed + "yes/g' /etc/xinetd.d/x\ndone\n";
    const std::string Y = sed + "no/g' /etc/xinetd.d/x\ndone\n";
    using Text = const char*;
    // The last column has the states of 1, 2, 3, 1, -1, 6, 6, 7 and 8.
    const std::tuple<Text, Text, std::string, Text, Text> table[] = {
        {"optimize_service 5 2 3 4 99", "", "", "success", "012300011"},
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
    for (const auto& [line, failing, commands, answer, states_after] : table) {
        SCOPED_TRACE(line);
        reset_conf();
        const std::string before = read(conf_path);
        write("failing", failing);
        testing::internal::CaptureStdout();
        EXPECT_EQ(call(line), answer);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), commands); // each before it runs
        const std::string after = read(conf_path);
        std::string states;
        for (std::size_t at = 0; (at = after.find("op=", at)) != std::string::npos; at += 5) {
            states += after[at + 4];
        }
        EXPECT_EQ(states, states_after);
        EXPECT_EQ(after == before, answer == std::string("success")); // no id, no save
    }

    reset_conf(); // the switch succeeds, the save fails
    write("bin/chkconfig", "#!/bin/sh\n: >config/system_operation/conf.xml");
    EXPECT_EQ(call("optimize_service 1"), "failure");
}

TEST_F(InterfaceTest, HandlersSurviveEveryFailureOfTheFramework)
{
    const CLiteXmlException longest(std::string(200, 'x'), 0, ""); // sizes what the library keeps
    for (const char* const line : {"get_optimize_sorce", "set_optimize_sorce 7", "ls_service",
                                   "ls_reg", "optimize_service 1 6 2", "restore_service 2",
                                   "ignore_service on 1 6", "ignore_reg on 1"}) {
        SCOPED_TRACE(line);
        const auto block = host::make_call_block(to_call(line));
        std::size_t sent = 0;
        bool done = false;
        const auto run = [&] {
            reset_conf();
            sent = 0;
            ec::EC code = 0;
            const auto reply = host::call_module(
                m_interface, *block, [&sent](const auto&) { ++sent; }, code);
            done = reply && ec::succeeded(reply->code());
            return code;
        };
        EXPECT_EQ(run(), answered);
        const std::size_t items = sent;
        fake::sweep(fake::rpc_faults, [&] {
            const ec::EC code = run();
            const std::string_view failed = fake::rpc_faults.failed;
            const bool at_once = failed == "new_request";
            const bool in_item = !at_once && !failed.empty() && sent < items;
            EXPECT_EQ(code, failed.empty() || in_item ? answered : fake::rpc_faults.code) << failed;
            EXPECT_EQ(sent, at_once ? 0 : items - (in_item ? 1 : 0)) << failed;
        });
        // The store fails instead: the file stays as it was and nothing is sent.
        reset_conf();
        const std::string before = read(conf_path);
        for (fake::Faults* const faults : {&fake::xml_faults, &fake::memory_faults}) {
            fake::sweep(*faults, [&] {
                EXPECT_EQ(run(), answered) << faults->failed;
                if (faults->failed != "new") { // without memory a text may also be empty
                    EXPECT_EQ(done, faults->failed.empty()) << faults->failed;
                }
                EXPECT_EQ(sent, done ? items : 0) << faults->failed;
                if (!done && faults->failed != "release") {
                    EXPECT_EQ(read(conf_path), before) << faults->failed;
                }
            });
        }
        fake::sweep_exhaustion([&] {
            (fake::Unlimited(), reset_conf());
            code_of(*block);
        });
    }
    EXPECT_EQ(fake::run_log, "");
}

TEST_F(InterfaceTest, ReplyOperationsSurviveEveryFailureOfTheFramework)
{
    for (const ec::EC code : {success, ec::EC{0}}) {
        SCOPED_TRACE(code);
        fake::sweep(fake::rpc_faults, [&] {
            Items items = two_items();
            ReplyRecorder command;
            const ec::EC sent = m_interface.ret_ls_service(&command, code, items);
            const std::string_view failed = fake::rpc_faults.failed;
            const bool encoded = failed.empty() || failed == "reply";
            EXPECT_EQ(sent, failed.empty() ? fake::block_made : fake::rpc_faults.code) << failed;
            for (const rpc::SystemOptimize_Item& item : items) {
                EXPECT_EQ(item.name, nullptr) << failed << ", item " << item.id;
                EXPECT_EQ(item.desc, nullptr) << failed << ", item " << item.id;
            }
            EXPECT_EQ(items.empty(), encoded || (code == 0 && failed != "new_reply")) << failed;
            ASSERT_EQ(command.last != nullptr, encoded) << failed;
            EXPECT_EQ(encoded ? command.last->all().size() : 0, encoded && code != 0 ? 1U : 0U)
                << failed;
        });
    }
    ReplyRecorder command;
    rpc::int32 value = 42;
    m_interface.ret_get_optimize_num(&command, success, value);
    EXPECT_EQ(command.last->all().at(0)->number(), 42U);
    Ids ids = {1};
    EXPECT_EQ(m_interface.ret_ignore_reg(&command, 0, ids), fake::block_made);
    EXPECT_EQ(ids, Ids{1}); // kept with a failure code
    EXPECT_EQ(m_interface.ret_ignore_reg(&command, success, ids), fake::block_made);
    EXPECT_EQ(ids, Ids{});
}

TEST_F(InterfaceTest, NeverDeliversAReplyOf65520Bytes)
{
    const std::size_t rest = 65; // bytes of a reply with two_items(0)
    const std::string head = "8 \xC7\xEB\xC7\xF3\xB0\xFC\xCA\xFD\xBE\xDD\xB3\xAC\xB3\xA4:";
    const bool is_clang = std::string_view(__VERSION__).find("lang") != std::string_view::npos;
    const auto place = [&](const std::string& member, const std::string& parameters) {
        return "this\\(" + testing::PrintToString(static_cast<void*>(&m_interface)) +
               "\\) (virtual )?ec::EC rpc::CIfaceRealize_Optimize_Option::" + member + "\\(" +
               (is_clang ? ".*" : parameters) + // clang spells types in another way
               "\\) system_option_s\\([0-9]+\\) "
               "CT:[A-Z][a-z]+ +[0-9]+ [0-9]+ [0-9]+:[0-9]+:[0-9]+";
    };
    const std::string reply = "rpc::ICommand\\*, ec::EC";
    const std::string listing =
        place("ret_ls_reg", reply + ", std::vector<rpc::SystemOptimize_Item>&");
    // The allocation that fails is that of the entry's text or of its location.
    const std::tuple<std::size_t, std::uint32_t, int, std::string> table[] = {
        {65519, 8, 0, ""},
        {65520, 8, 0, head + "65520\\(B\\) \\[" + listing + "\\]\n"},
        {65520, ~8U, 0, ""},
        {70000, 8, 1, ""},
        {70000, 8, 2, head + "70000\\(B\\) \\[null\\]\n"}};
    for (const auto& [size, mask, failing, log] : table) {
        SCOPED_TRACE(testing::Message() << size << " bytes, allocation " << failing);
        fwbase::IRunLog::ms_type_sign = mask;
        fake::run_log.clear();
        Items items = two_items(size - rest);
        ReplyRecorder command;
        fake::memory_faults = {failing, {}, 0};
        const bool fits = size == 65519;
        EXPECT_EQ(m_interface.ret_ls_reg(&command, success, items),
                  fits ? fake::block_made : 0x840C000C);
        EXPECT_EQ(command.last != nullptr, fits);
        EXPECT_EQ(items.size(), fits ? 0U : 2U);
        EXPECT_THAT(fake::run_log, testing::MatchesRegex(log));
        rpc::free_strings(items); // does nothing: the strings are not the caller's any more
    }
    fwbase::IRunLog::ms_type_sign = 8;
    fake::reply_size = 65520;
    for (const char* const line : every_call) {
        fake::run_log.clear();
        EXPECT_EQ(code_of(to_call(line)), 0x840C000C) << line;
        EXPECT_THAT(fake::run_log,
                    testing::ContainsRegex(
                        place("cf_" + to_call(line).operation,
                              "rpc::IRequest\\*, fwbase::IDataBlock\\*&, rpc::ICommand\\*")));
    }
    ReplyRecorder command;
    rpc::int32 value = 0;
    Ids ids;
    fake::run_log.clear();
    m_interface.ret_set_optimize_sorce(&command, success);
    m_interface.ret_get_optimize_num(&command, success, value);
    m_interface.ret_ignore_reg(&command, success, ids);
    for (const auto& [member, outputs] : {std::pair{"ret_set_optimize_sorce", ""},
                                          {"ret_get_optimize_num", ", rpc::int32&"},
                                          {"ret_ignore_reg", ", std::vector<unsigned int>&"}}) {
        EXPECT_THAT(fake::run_log, testing::ContainsRegex(place(member, reply + outputs)));
    }
    fake::reply_size = 0;
    for (const std::size_t length : {1022U, 1023U, 5000U}) {
        const std::string text(length, 'x');
        const std::unique_ptr<char[]> cut(fwbase::IRunLog::FormatStr("%s", text.c_str()));
        EXPECT_EQ(cut.get(), text.substr(0, 1022)) << length;
    }
}

TEST_F(InterfaceTest, TheInstalledModuleMeetsTheFrameworkOfItsProgram)
{
    const host::Module module(MODULE);
    EXPECT_EQ(fake::rpc_references, 2);
    fake::xml_faults = {1, {}, 0};
    EXPECT_EQ(::call(module.interface(), "get_optimize_num"), "failure");
    EXPECT_EQ(fake::xml_faults.failed, "another"); // newXmlDocument
}
