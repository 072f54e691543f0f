#include "rpc/reply_outputs.h"

#include "rpc/result_codes.h"

namespace rpc
{

namespace
{

/// Adds a parameter that borrows its value; false when it cannot be made.
bool add_borrowed(IMsgFactory& factory, IParams& params, unsigned type, const void* value)
{
    IParam* const param = factory.new_param(type, value, 0);
    if (param != nullptr) {
        params.add(param);
    }
    return param != nullptr;
}

/// Adds a parameter that owns the string; false when it cannot be made.
bool add_handed_over(IMsgFactory& factory, IParams& params, std::string*& text)
{
    IParam* const param = factory.new_param(T_STRING, text, 1);
    if (param != nullptr) {
        text = nullptr; // before add(), which frees the string if it throws
        params.add(param);
    }
    return param != nullptr;
}

ec::EC add_one(IMsgFactory& factory, IParams& params, unsigned type, const void* value)
{
    return add_borrowed(factory, params, type, value) ? result::success : result::no_parameter;
}

} // namespace

ec::EC add_outputs(IMsgFactory&, IParams&, NoOutput&, RecordContainers&)
{
    return result::success;
}

ec::EC add_outputs(IMsgFactory& factory, IParams& params, rpc::int32& value, RecordContainers&)
{
    return add_one(factory, params, T_UINT32, &value);
}

ec::EC add_outputs(IMsgFactory& factory, IParams& params, Ids& ids, RecordContainers&)
{
    return add_one(factory, params, T_UINT32_LIST, &ids);
}

ec::EC add_outputs(IMsgFactory& factory, IParams& params, Items& items,
                   RecordContainers& containers)
{
    containers.owners.reserve(items.size());
    containers.list.reserve(items.size());
    for (SystemOptimize_Item& item : items) {
        IParams* const record = factory.new_record();
        if (record == nullptr) {
            return result::no_record;
        }
        containers.owners.emplace_back(record);
        containers.list.push_back(record);
        const bool added = add_borrowed(factory, *record, T_UINT32, &item.id) &&
                           add_handed_over(factory, *record, item.name) &&
                           add_handed_over(factory, *record, item.desc) &&
                           add_borrowed(factory, *record, T_UINT32, &item.op);
        if (!added) {
            return result::no_parameter;
        }
    }
    IParam* const records = factory.new_param(T_RECORD_LIST, &containers.list, 0);
    if (records == nullptr) {
        return result::no_parameter;
    }
    for (owned<IParams>& record : containers.owners) {
        record.release(); // the parameter owns the containers now
    }
    params.add(records);
    return result::success;
}

} // namespace rpc
