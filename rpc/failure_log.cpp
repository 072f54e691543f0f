#include "rpc/failure_log.h"

#include "framework/fwbase.h"

#include <cinttypes>
#include <memory>

namespace rpc
{

namespace
{

constexpr std::uint32_t entry_type = 8; // also the bit that enables it in the host's mask

// "请求包数据超长:%d(B)" in GBK: request packet data too long.
constexpr const char* text_format =
    "\xC7\xEB\xC7\xF3\xB0\xFC\xCA\xFD\xBE\xDD\xB3\xAC\xB3\xA4:%d(B)";

} // namespace

void log_oversized_reply(const SourceLocation& location, std::uint32_t size)
{
    using fwbase::IRunLog;
    if ((IRunLog::ms_type_sign & entry_type) == 0) {
        return;
    }
    std::unique_ptr<char[]> where; // declared first, so that it is freed after the text
    const std::unique_ptr<char[]> text(IRunLog::FormatStr(text_format, static_cast<int>(size)));
    if (!text) {
        return;
    }
    where.reset(IRunLog::FormatStr("this(0x%" PRIxPTR ") %s %s(%d) CT:%s %s",
                                   reinterpret_cast<std::uintptr_t>(location.object),
                                   location.signature, "system_option_s", location.line, __DATE__,
                                   __TIME__));
    fwbase::IFWBase::instance()->run_log()->log(entry_type, text.get(), where.get());
}

} // namespace rpc
