// What the operations cost, each beside its floor. A floor makes only the calls into the framework
// and the C library that its operation cannot do without. The outcome is known beforehand, so a
// floor parses no listing line, looks nothing up and decides nothing.
//
// scripts/bench.sh runs this in a folder with a working directory for each number of entries, named
// after it, and one more named "ids". On the PATH is a stand-in for chkconfig.
#include "framework/owned.h"
#include "framework/xml.h"
#include "host/call.h"
#include "rpc/system_option_s.h"

#include <array>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iconv.h>
#include <libxml/xmlversion.h>
#include <malloc.h>
#include <memory>
#include <numeric>

namespace
{

namespace fs = std::filesystem;
using benchmark::State;

constexpr const char* conf_path = "./config/system_operation/conf.xml";
constexpr const char* score_path = "//kavra_conf/myself_config/optimize_sorce";
constexpr const char* info_path = "//kavra_conf/service_optimize/info";
constexpr ec::EC success = 0x80000000;
constexpr rpc::int32 score = 90;

rpc::IIfaceRealize& module()
{
    return *rpc_ireal_Optimize_Option();
}

void enter(const std::string& directory)
{
    static const fs::path top = fs::current_path();
    fs::current_path(top / directory);
}

/// Enters the working directory that has as many entries as the benchmark asks for.
void enter(const State& state)
{
    enter(std::to_string(state.range(0)));
}

/// Gives replies back unread: what a host does with them is not measured.
class ReplySink final : public rpc::ICommand
{
public:
    ec::EC reply(ec::EC code, fwbase::IDataBlock* block) override
    {
        block->release();
        return code;
    }
};

// --- Operations ---

using Calls = std::vector<host::Call>;

/// Ends the program unless all calls succeed.
void require(const Calls& calls)
{
    for (const host::Call& call : calls) {
        const auto block = host::make_call_block(call);
        ec::EC result = 0;
        const auto reply = host::call_module(
            module(), *block, [](const auto&) {}, result);
        if (!reply || !ec::succeeded(reply->code())) {
            std::fprintf(stderr, "%s failed in %s\n", call.operation.c_str(),
                         fs::current_path().c_str());
            std::exit(1);
        }
    }
}

/// Measures one `run` for the block of each call.
template <class Run>
void measure_blocks(State& state, const Calls& calls, Run run)
{
    std::vector<owned<fwbase::IDataBlock>> blocks;
    for (const host::Call& call : calls) {
        blocks.push_back(host::make_call_block(call));
    }
    // Warm up: what another figure left in caches and heap must not be paid for by one side only.
    for (const auto& block : blocks) {
        run(*block);
    }
    for (auto _ : state) {
        for (const auto& block : blocks) {
            run(*block);
        }
    }
}

void measure(State& state, const Calls& calls)
{
    measure_blocks(state, calls, [](const fwbase::IDataBlock& block) {
        ReplySink command;
        fwbase::IDataBlock* reply = nullptr;
        module().call_func(&block, reply, &command);
        reply->release();
    });
}

const Calls nothing_calls = {{"ls_reg", {}}};
const Calls get_calls = {{"get_optimize_sorce", {}}};
const Calls set_calls = {{"set_optimize_sorce", {{}, score, {}}}};
const Calls list_calls = {{"ls_service", {}}};

/// Ignores all entries in "ids", then undoes it.
Calls ignore_calls()
{
    std::vector<unsigned int> ids(1000);
    std::iota(ids.begin(), ids.end(), 1U);
    return {{"ignore_service", {true, {}, ids}}, {"ignore_service", {false, {}, ids}}};
}

void nothing(State& state)
{
    measure(state, nothing_calls);
}

void get(State& state)
{
    enter(state);
    measure(state, get_calls);
}

void set(State& state)
{
    enter(state);
    measure(state, set_calls);
}

void list(State& state)
{
    enter(state);
    measure(state, list_calls);
}

void ignore(State& state)
{
    enter("ids");
    measure(state, ignore_calls());
}

// --- Floors ---

rpc::IMsgFactory& factory()
{
    static void* service = nullptr;
    if (service == nullptr) {
        fwbase::IFWBase::instance()->obj_registry()->query("obj.fws.rpc", &service);
    }
    return *static_cast<rpc::IRpcService*>(service)->msg_factory();
}

/// Measures `work`, which gets the parameters of the request.
template <class Work>
void measure_floor(State& state, const Calls& calls, Work work)
{
    measure_blocks(state, calls, [&work](const fwbase::IDataBlock& block) {
        const owned<rpc::IRequest> request(factory().new_request(""));
        request->read(block.data() + 4, block.size() - 4);
        work(*request->params());
    });
}

void add(rpc::IParams& params, unsigned type, const void* value, int hand_over = 0)
{
    params.add(factory().new_param(type, value, hand_over));
}

/// Encodes a reply with the parameters that `add_outputs` adds, and sends it.
template <class Outputs>
void reply(Outputs add_outputs)
{
    ReplySink command;
    const owned<rpc::IRequest> message(factory().new_reply(&command, success));
    add_outputs(*message->params());
    const std::uint32_t size = message->size();
    fwbase::IDataBlock* block = nullptr;
    fwbase::IFWBase::instance()->mem_manager()->new_block(block, size);
    message->write(block->buffer(), size);
    block->set_size(size);
    command.reply(success, block);
}

template <class List>
void reply_list(unsigned type, const List& values)
{
    reply([&](rpc::IParams& params) { add(params, type, &values); });
}

/// Loads the file, runs `work` on the root element, and saves the file if `save` says so.
template <class Work>
void document_cycle(bool save, Work work)
{
    const owned<IXmlDocument> document(newXmlDocument());
    document->load(conf_path);
    work(*owned<IXmlNode>(document->root()));
    if (save) {
        document->save(conf_path);
    }
}

/// A document cycle that runs `work` on every entry.
template <class Work>
void for_each_entry(bool save, Work work)
{
    document_cycle(save, [&](IXmlNode& root) {
        const owned<IXmlNodeList> entries(root.selectNodes(info_path));
        const int count = entries->count();
        for (int i = 0; i < count; ++i) {
            work(*owned<IXmlNode>(entries->item(i)));
        }
    });
}

int number(IXmlNode& node)
{
    return std::atoi(node.value().c_str());
}

void get_floor(State& state)
{
    enter(state);
    measure_floor(state, get_calls, [](rpc::IParams&) {
        document_cycle(false, [](IXmlNode& root) {
            const int value = number(*owned<IXmlNode>(root.selectSingleNode(score_path)));
            reply([&](rpc::IParams& params) { add(params, rpc::T_UINT32, &value); });
        });
    });
}

void set_floor(State& state)
{
    enter(state);
    measure_floor(state, set_calls, [](rpc::IParams&) {
        document_cycle(true, [](IXmlNode& root) {
            const owned<IXmlNode> node(root.selectSingleNode(score_path));
            node->setValue(std::to_string(score).c_str());
        });
        reply([](rpc::IParams&) {});
    });
}

void read_listing()
{
    setenv("LC_ALL", "en_US", 1);
    std::FILE* const listing = popen("chkconfig --list 2> /dev/null", "r");
    std::array<char, 256> line;
    while (std::fgets(line.data(), line.size(), listing) != nullptr) {
        benchmark::DoNotOptimize(line);
    }
    pclose(listing);
    unsetenv("LC_ALL");
}

/// The text in GBK as a new object. The converter is opened and closed for each text.
std::string* in_gbk(const std::string& text)
{
    std::size_t left = text.size();
    std::size_t room = 4 * left;
    const auto gbk = std::make_unique<char[]>(room);
    char* from = const_cast<char*>(text.c_str());
    char* to = gbk.get();
    const iconv_t converter = iconv_open("GBK", "UTF-8");
    iconv(converter, &from, &left, &to, &room);
    iconv_close(converter);
    return new std::string(gbk.get());
}

/// The outcome of a listing for one entry.
struct Finding {
    bool on_machine;
    std::string op;
    std::string level;
    std::string xinetd;
};

/// The outcome for all entries, from the file that an earlier listing saved.
std::vector<Finding> findings()
{
    std::vector<Finding> all;
    for_each_entry(false, [&](IXmlNode& entry) {
        all.push_back({entry.attribute("name")->value().rfind("absent-", 0) != 0,
                       entry.attribute("op")->value(), entry.attribute("level")->value(),
                       entry.attribute("xinetd")->value()});
    });
    return all;
}

void list_floor(State& state)
{
    struct Record {
        int id;
        std::string* name;
        std::string* description;
        int op;
    };
    enter(state);
    measure_floor(state, list_calls, [found = findings()](rpc::IParams&) {
        read_listing();
        std::vector<Record> records;
        auto finding = found.begin();
        for_each_entry(true, [&](IXmlNode& entry) {
            const Finding& now = *finding++;
            std::string name = entry.attribute("name")->value();
            if (!now.on_machine) {
                entry.attribute("op")->setValue(now.op.c_str());
                return;
            }
            benchmark::DoNotOptimize(number(*entry.attribute("op")));
            entry.attribute("op")->setValue(now.op.c_str());
            entry.attribute("level")->setValue(now.level.c_str());
            entry.attribute("xinetd")->setValue(now.xinetd.c_str());
            if (now.op == "0") {
                records.push_back({number(*entry.attribute("id")), new std::string(std::move(name)),
                                   in_gbk(entry.attribute("desc")->value()), 0});
            }
        });
        // Only after the save: a listing that fails must send no record.
        for (const Record& record : records) {
            rpc::IParams* const fields = factory().new_record();
            add(*fields, rpc::T_UINT32, &record.id);
            add(*fields, rpc::T_STRING, record.name, 1);
            add(*fields, rpc::T_STRING, record.description, 1);
            add(*fields, rpc::T_UINT32, &record.op);
            reply_list(rpc::T_RECORD_LIST, std::vector<rpc::IParams*>{fields});
        }
        reply_list(rpc::T_RECORD_LIST, std::vector<rpc::IParams*>());
    });
}

void ignore_floor(State& state)
{
    enter("ids");
    measure_floor(state, ignore_calls(), [](rpc::IParams& inputs) {
        rpc::IParam* ignored = nullptr;
        inputs.next(ignored);
        rpc::IParam* ids = nullptr;
        inputs.next(ids);
        const char* const op = *static_cast<const bool*>(ignored->value()) ? "2" : "0";
        for_each_entry(false, [](IXmlNode& entry) {
            for (const char* const name : {"op", "id", "name", "level", "xinetd"}) {
                benchmark::DoNotOptimize(entry.attribute(name)->value());
            }
        });
        for_each_entry(true, [op](IXmlNode& entry) {
            benchmark::DoNotOptimize(number(*entry.attribute("op")));
            benchmark::DoNotOptimize(number(*entry.attribute("id")));
            entry.attribute("op")->setValue(op);
        });
        for (const unsigned int id :
             **static_cast<std::vector<unsigned int>* const*>(ids->value())) {
            reply_list(rpc::T_UINT32_LIST, std::vector<unsigned int>{id});
        }
        reply_list(rpc::T_UINT32_LIST, std::vector<unsigned int>());
    });
}

// Real time, because the operations wait for a command and for the disk.
void at_all_sizes(benchmark::internal::Benchmark* figure)
{
    figure->RangeMultiplier(10)->Range(10, 10000)->UseRealTime();
}

BENCHMARK(nothing)->UseRealTime();
BENCHMARK(get)->Apply(at_all_sizes);
BENCHMARK(get_floor)->Apply(at_all_sizes);
BENCHMARK(set)->Apply(at_all_sizes);
BENCHMARK(set_floor)->Apply(at_all_sizes);
BENCHMARK(list)->Apply(at_all_sizes);
BENCHMARK(list_floor)->Apply(at_all_sizes);
BENCHMARK(ignore)->UseRealTime();
BENCHMARK(ignore_floor)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    benchmark::AddCustomContext("compiler", COMPILER);
    benchmark::AddCustomContext("libxml2", LIBXML_DOTTED_VERSION);
    // Never give memory back to the kernel. Otherwise some figures take it anew at every call and
    // others never, depending on where a small object happens to lie in the heap.
    mallopt(M_TRIM_THRESHOLD, -1);
    mallopt(M_MMAP_MAX, 0);
    enter(".");
    module().init(nullptr);
    // Each call once, so that the files are as every later call finds them.
    for (const char* const entries : {"10", "100", "1000", "10000"}) {
        enter(entries);
        for (const Calls& calls : {nothing_calls, get_calls, set_calls, list_calls}) {
            require(calls);
        }
    }
    enter("ids");
    require(ignore_calls());
    benchmark::RunSpecifiedBenchmarks();
    module().release();
}
