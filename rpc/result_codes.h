// The result codes that the interface object and the operation object make themselves.
#pragma once

#include "framework/ec.h"

namespace rpc
{

/// Codes of the operations; they travel inside the replies.
namespace operation_result
{
constexpr ec::EC success = 0x80000000;
constexpr ec::EC failure = 0;
} // namespace operation_result

/// Codes of the interface object, returned to the host: 0x040C in bits 16 to 30, the condition in
/// bits 0 to 15.
namespace result
{
/// The reply block was made (for fatts: the list was filled).
constexpr ec::EC success = 0x840C0000;
/// No operation has the called name.
constexpr ec::EC unknown_operation = 0x040C0001;
/// The request holds fewer parameters than the operation takes, or one of another type.
constexpr ec::EC missing_parameter = 0x040C0005;
/// A reply parameter could not be made.
constexpr ec::EC no_parameter = 0x040C0006;
/// The container of a record could not be made.
constexpr ec::EC no_record = 0x040C0007;
/// The request message could not be made.
constexpr ec::EC no_request = 0x040C0008;
/// The reply message could not be made.
constexpr ec::EC no_reply = 0x040C0009;
/// The call block does not hold a readable request.
constexpr ec::EC unreadable_request = 0x040C000A;
/// Serialising the reply wrote another number of bytes than its size.
constexpr ec::EC short_write = 0x040C000B;
/// The reply is too large and was not delivered. Bit 31 is set, so to the host this is a success
/// without a reply block.
constexpr ec::EC reply_too_large = 0x840C000C;
} // namespace result

} // namespace rpc
