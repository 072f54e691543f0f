// The configuration store: the candidate services with their states, the score and the count, in
// one XML file.
#pragma once

#include "conf/system_optimize_item.h"
#include "service/redhat_service.h"

#include <string>
#include <vector>

/// State of a configured service; stored as decimal text.
enum OptimizeOperate : int {
    OPT_NONE = 0,       ///< running, a candidate for optimisation
    OPT_OPTIMIZED = 1,  ///< switched off by the module
    OPT_IGNORED = 2,    ///< running, and to be left so
    OPT_UNAVAILABLE = 3 ///< not on the machine, or switched off by somebody else; never listed
};

/// One configured service.
struct ServiceOptimize {
    int id = 0;
    std::string name; ///< as the listing prints it
    OptimizeOperate op = OPT_NONE;
    std::string level; ///< run levels when last seen running ("2345"), "on" or "off"
    bool xinetd = false;
};

/// Typed reads and writes of the file. Every operation that touches the file loads it anew, and a
/// writing one replaces it whole.
///
/// All operations return false when the file cannot be loaded or saved or lacks what the operation
/// needs. Then a number or record to be set is as it was, and so is the file, unless what failed
/// came after the new file had taken its place. Text is UTF-8 unless said otherwise. A malformed
/// number is no error: numbers are read as far as they go, no digits are 0, and what exceeds a
/// signed 32-bit integer is cut to its limits.
///
/// Any operation may run on any thread. Writing ones wait for one another; reading ones see the
/// file before or after a write, never between.
class CConf
{
public:
    CConf() = delete;

    /// Path of the file, relative to the host process's working directory at each call.
    static const char* const m_confPath;

    static bool GetOptimizeScore(unsigned int& score);
    static bool GetOptimizeCount(unsigned int& count);
    /// Writes the score, also when it is the stored one. A file without the score's element gets
    /// none.
    static bool SetOptimizeScore(unsigned int score);

    /// Reconciles every configured entry with the live list, saves the file, and appends a record
    /// for each entry that a client should see to `items`, in document order. The strings of the
    /// appended records are the caller's, also after a failure.
    static bool GetValidServiceList(const CServiceMap& services,
                                    std::vector<rpc::SystemOptimize_Item>& items);

    /// Appends the entries whose state is `op` to `services`, in document order. Entries appended
    /// before a failure stay.
    static bool GetServiceFromConfigByOp(std::vector<ServiceOptimize>& services,
                                         OptimizeOperate op);

    /// Writes the state `op` to every entry whose id is in `ids`, except unavailable ones, and
    /// saves the file even when no entry matched.
    static bool ModifyOpByIds(const std::vector<int>& ids, OptimizeOperate op);

    /// Copies the first entry with that id to `found`. Does not touch the file.
    static bool FindServiceById(const std::vector<ServiceOptimize>& services, int id,
                                ServiceOptimize& found);

    /// The text in GBK, up to the first NUL or the first character that is not valid UTF-8 or not
    /// in GBK. Empty when the C library has no such converter. Does not touch the file.
    static std::string utf8_to_gbk(const std::string& text);
};
