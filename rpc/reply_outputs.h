// Adding the outputs of an operation to a reply, one overload per reply shape.
#pragma once

#include "framework/owned.h"
#include "framework/rpc.h"
#include "rpc/system_option.h"

#include <vector>

namespace rpc
{

/// The outputs of an operation that has none.
struct NoOutput {
};

/// The containers of a record list. Must outlive the reply, whose parameter reads `list`.
struct RecordContainers {
    std::vector<owned<IParams>> owners; ///< empty once the T_RECORD_LIST parameter owns them
    std::vector<IParams*> list;         ///< value object of that parameter
};

// Each overload returns result::success, or the code of what could not be made. Values are borrowed
// by the parameters until the reply has been serialised. The parameters take ownership of record
// strings, whose pointers are then null.

ec::EC add_outputs(IMsgFactory& factory, IParams& params, NoOutput&, RecordContainers&);
ec::EC add_outputs(IMsgFactory& factory, IParams& params, rpc::int32& value, RecordContainers&);
ec::EC add_outputs(IMsgFactory& factory, IParams& params, Ids& ids, RecordContainers&);
ec::EC add_outputs(IMsgFactory& factory, IParams& params, Items& items,
                   RecordContainers& containers);

// What a reply with a failure code does with the outputs: it does not carry them, so records are
// freed; everything else stays as it is.

template <class Outputs>
void discard_outputs(Outputs&)
{
}
inline void discard_outputs(Items& items)
{
    free_strings(items);
    items.clear();
}

// What a reply operation does with the outputs once they are encoded: lists come back empty.

template <class Output>
void clear_outputs(Output&)
{
}
template <class Element>
void clear_outputs(std::vector<Element>& list)
{
    list.clear();
}

} // namespace rpc
