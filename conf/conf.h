// The configuration store: one XML file with the candidate services, their states, and two numbers
// that clients keep there, the score and the count.
#pragma once

#include "conf/system_optimize_item.h"
#include "service/redhat_service.h"

#include <string>
#include <vector>

/// State of a configured service; stored as decimal text.
enum OptimizeOperate : int {
    OPT_NONE = 0,       ///< on; a candidate for optimisation
    OPT_OPTIMIZED = 1,  ///< switched off by the module
    OPT_IGNORED = 2,    ///< on; the user wants it left alone
    OPT_UNAVAILABLE = 3 ///< not on the machine, or switched off by others; not listed
};

/// One configured service.
struct ServiceOptimize {
    int id = 0;
    std::string name; ///< UTF-8, as the listing prints it
    OptimizeOperate op = OPT_NONE;
    std::string level; ///< run levels in which it was last seen on ("2345"), "on" or "off"
    bool xinetd = false;
};

/// Typed reads and writes of the file. Every operation that uses the file loads it anew. Every
/// operation that writes replaces the whole file.
///
/// An operation returns false if the file cannot be loaded or saved, or lacks the element that the
/// operation needs. Numbers and records to be set then keep their values. The file is unchanged
/// too, unless the failure came after the new file had replaced it. Text is UTF-8 unless stated
/// otherwise. A malformed number is not an error: it is read up to the first character that is not
/// a digit, text without digits is 0, and values are clamped to a signed 32-bit integer.
///
/// Thread-safe. Writers take turns. Readers see the file before or after a write, never in between.
class CConf
{
public:
    CConf() = delete;

    /// Path of the file, relative to the host process's working directory at each call.
    static const char* const m_confPath;

    static bool GetOptimizeScore(unsigned int& score);
    static bool GetOptimizeCount(unsigned int& count);
    /// Writes the score, even if it has not changed. Fails if the file has no element for it.
    static bool SetOptimizeScore(unsigned int score);

    /// Reconciles every configured entry with the live list, saves the file, and appends a record
    /// to `items` for each entry that a client should see, in document order. The caller owns the
    /// strings of the appended records, even after a failure.
    static bool GetValidServiceList(const CServiceMap& services, rpc::Items& items);

    /// Appends the entries whose state is `op` to `services`, in document order. Entries appended
    /// before a failure stay.
    static bool GetServiceFromConfigByOp(std::vector<ServiceOptimize>& services,
                                         OptimizeOperate op);

    /// Writes the state `op` to every entry whose id is in `ids`, except unavailable ones, and
    /// saves the file even when no entry matched.
    static bool ModifyOpByIds(const std::vector<int>& ids, OptimizeOperate op);

    /// Copies the first entry with that id to `found`; false if there is none. Does not use the
    /// file.
    static bool FindServiceById(const std::vector<ServiceOptimize>& services, int id,
                                ServiceOptimize& found);

    /// Converts UTF-8 to GBK, up to the first NUL or the first character that is not valid UTF-8 or
    /// that GBK lacks. Returns an empty text if the C library has no such converter or there is no
    /// memory for the buffer. Does not use the file.
    static std::string utf8_to_gbk(const std::string& text);
};
