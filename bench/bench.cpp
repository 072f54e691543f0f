// What the operations cost, each beside its floor: the same work written out by hand, as far as it
// cannot be avoided. scripts/bench.sh runs this where it has made a working directory for each
// number of entries, named after it, and one more, "ids", with a stand-in chkconfig on the PATH.
#include "bench/allocations.h"
#include "framework/xml.h"
#include "host/call.h"
#include "rpc/result_codes.h"
#include "rpc/system_option_s.h"

#include <array>
#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <libxml/xmlversion.h>
#include <numeric>

namespace
{

namespace fs = std::filesystem;
using benchmark::State;

constexpr const char* score_path = "//kavra_conf/myself_config/optimize_sorce";
constexpr const char* info_path = "//kavra_conf/service_optimize/info";
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

// --- Operations ---

/// Gives the replies back unread: what a host does with them is its own.
class Command final : public rpc::ICommand
{
public:
    ec::EC reply(ec::EC code, fwbase::IDataBlock* block) override
    {
        block->release();
        return code;
    }
};

/// The block of a call that was made once, so that the files are as every later call finds them.
/// Ends the program unless it succeeded.
owned<fwbase::IDataBlock> require(const host::Call& call)
{
    auto block = host::make_call_block(call);
    ec::EC result = 0;
    const auto reply = host::run_call(
        module(), *block, [](const auto&) {}, result);
    if (!reply || !ec::succeeded(reply->code())) {
        std::fprintf(stderr, "%s failed in %s\n", call.operation.c_str(),
                     fs::current_path().c_str());
        std::exit(1);
    }
    return block;
}

void measure_call(State& state, const host::Call& call)
{
    const auto block = require(call);
    Command command;
    const long before = allocations::made();
    for (auto _ : state) {
        fwbase::IDataBlock* reply = nullptr;
        module().call_func(block.get(), reply, &command);
        reply->release();
    }
    state.counters["allocations"] = benchmark::Counter(
        static_cast<double>(allocations::made() - before), benchmark::Counter::kAvgIterations);
}

void get(State& state)
{
    enter(std::to_string(state.range(0)));
    measure_call(state, {"get_optimize_sorce", {}});
}

void set(State& state)
{
    enter(std::to_string(state.range(0)));
    measure_call(state, {"set_optimize_sorce", {{}, score, {}}});
}

void list(State& state)
{
    enter(std::to_string(state.range(0)));
    measure_call(state, {"ls_service", {}});
}

void nothing(State& state)
{
    measure_call(state, {"ls_reg", {}});
}

// --- Floors ---

void get_floor(State& state)
{
    enter(std::to_string(state.range(0)));
    for (auto _ : state) {
        IXmlDocument* const document = newXmlDocument();
        document->load(CConf::m_confPath);
        IXmlNode* const root = document->root();
        IXmlNode* const node = root->selectSingleNode(score_path);
        benchmark::DoNotOptimize(std::atoi(node->value().c_str()));
        node->release();
        root->release();
        document->release();
    }
}

void set_floor(State& state)
{
    enter(std::to_string(state.range(0)));
    for (auto _ : state) {
        IXmlDocument* const document = newXmlDocument();
        document->load(CConf::m_confPath);
        IXmlNode* const root = document->root();
        IXmlNode* const node = root->selectSingleNode(score_path);
        node->setValue(std::to_string(score).c_str());
        document->save(CConf::m_confPath);
        node->release();
        root->release();
        document->release();
    }
}

void list_floor(State& state)
{
    enter(std::to_string(state.range(0)));
    for (auto _ : state) {
        setenv("LC_ALL", "en_US", 1);
        std::FILE* const listing = popen("chkconfig --list 2> /dev/null", "r");
        std::array<char, 256> line;
        while (std::fgets(line.data(), line.size(), listing) != nullptr) {
            benchmark::DoNotOptimize(line);
        }
        pclose(listing);
        unsetenv("LC_ALL");

        IXmlDocument* const document = newXmlDocument();
        document->load(CConf::m_confPath);
        document->save(CConf::m_confPath);
        document->release();
    }
}

// --- All entries by their ids ---

constexpr int all = 1000;

/// The ids of all entries in "ids", in document order.
template <class Id>
std::vector<Id> all_ids()
{
    std::vector<Id> ids(all);
    std::iota(ids.begin(), ids.end(), Id{1});
    return ids;
}

void select_ids(State& state)
{
    enter("ids");
    const auto ids = all_ids<unsigned int>();
    rpc::Optimize_Option operations;
    for (auto _ : state) {
        std::vector<int> done;
        if (!operations.SetOSService(ids, done, true, OPT_NONE) || done.size() != all) {
            state.SkipWithError("not all entries were selected");
            break;
        }
    }
}

void change_ids(State& state)
{
    enter("ids");
    const auto ids = all_ids<int>();
    for (auto _ : state) {
        if (!CConf::ModifyOpByIds(ids, OPT_NONE)) { // as it is, and written all the same
            state.SkipWithError("the entries were not changed");
            break;
        }
    }
}

/// One document cycle over all entries, which are selected but not looked at.
void cycle(State& state, bool save)
{
    enter("ids");
    for (auto _ : state) {
        IXmlDocument* const document = newXmlDocument();
        document->load(CConf::m_confPath);
        IXmlNode* const root = document->root();
        IXmlNodeList* const entries = root->selectNodes(info_path);
        if (save) {
            document->save(CConf::m_confPath);
        }
        entries->release();
        root->release();
        document->release();
    }
}

void select_ids_floor(State& state)
{
    cycle(state, false);
}

void change_ids_floor(State& state)
{
    cycle(state, true);
}

// Real time, because the operations wait for a command and for the disk.
void at_all_sizes(benchmark::internal::Benchmark* figure)
{
    figure->RangeMultiplier(10)->Range(10, 10000)->UseRealTime();
}

BENCHMARK(get)->Apply(at_all_sizes);
BENCHMARK(get_floor)->Apply(at_all_sizes);
BENCHMARK(set)->Apply(at_all_sizes);
BENCHMARK(set_floor)->Apply(at_all_sizes);
BENCHMARK(list)->Apply(at_all_sizes);
BENCHMARK(list_floor)->Apply(at_all_sizes);
BENCHMARK(select_ids)->Arg(all)->UseRealTime();
BENCHMARK(select_ids_floor)->Arg(all)->UseRealTime();
BENCHMARK(change_ids)->Arg(all)->UseRealTime();
BENCHMARK(change_ids_floor)->Arg(all)->UseRealTime();
BENCHMARK(nothing)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    benchmark::Initialize(&argc, argv);
    benchmark::AddCustomContext("compiler", COMPILER);
    benchmark::AddCustomContext("libxml2", LIBXML_DOTTED_VERSION);
    enter(".");
    module().init(nullptr);
    for (const char* const entries : {"10", "100", "1000", "10000"}) {
        enter(entries);
        require({"set_optimize_sorce", {{}, score, {}}});
        require({"ls_service", {}});
    }
    benchmark::RunSpecifiedBenchmarks();
    module().release();
}
