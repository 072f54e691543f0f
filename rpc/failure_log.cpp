#include "rpc/failure_log.h"

#include "framework/fwbase.h"

#include <cinttypes>
#include <memory>

namespace rpc
{

namespace
{

constexpr std::uint32_t entry_type = 8; // the type's number is also its bit in the host's mask

// "请求包数据超长:%d(B)" in GBK: request packet data too long.
constexpr const char* text_format =
    "\xC7\xEB\xC7\xF3\xB0\xFC\xCA\xFD\xBE\xDD\xB3\xAC\xB3\xA4:%d(B)";

} // namespace

void log_oversized_reply(const FailurePlace& place, std::uint32_t size)
{
    using fwbase::IRunLog;
    if ((IRunLog::ms_type_sign & entry_type) == 0) {
        return;
    }
    const std::unique_ptr<char[]> text(IRunLog::FormatStr(text_format, static_cast<int>(size)));
    if (!text) {
        return;
    }
    const std::unique_ptr<char[]> where(IRunLog::FormatStr(
        "this(0x%" PRIxPTR ") ec::EC rpc::CIfaceRealize_Optimize_Option::%s(%s) %s(%d) CT:%s %s",
        reinterpret_cast<std::uintptr_t>(place.object), place.member, place.arguments,
        "system_option_s", place.line, __DATE__, __TIME__));
    fwbase::IFWBase::instance()->run_log()->log(entry_type, text.get(), where.get());
}

} // namespace rpc
