// The reference host's wire format: what it writes it reads, and what is no message it refuses.
#include "host/message.h"

#include <gtest/gtest.h>

namespace
{

using Bytes = std::vector<unsigned char>;

Bytes bytes_of(rpc::IRequest& message)
{
    Bytes bytes(message.size());
    EXPECT_EQ(message.write(bytes.data(), message.size()), bytes.size());
    return bytes;
}

int read(host::Message& message, const Bytes& bytes)
{
    return message.read(bytes.data(), static_cast<std::uint32_t>(bytes.size()));
}

/// A reply with a parameter of every type.
owned<host::Message> full_reply()
{
    static const unsigned char flag = 1;
    static const rpc::int32 number = 0xFEDCBA98;
    static const std::vector<unsigned int> numbers = {0, 4294967295U};
    static const std::string text("a\0\xFF", 3);
    host::MsgFactory factory;
    rpc::IParams* const record = factory.new_record();
    record->add(factory.new_param(rpc::T_STRING, new std::string(text), 1));
    const std::vector<rpc::IParams*> records = {record, factory.new_record()};
    auto* const reply = new host::Message(0x840C000CU);
    for (const auto& [type, value] : {std::pair<unsigned, const void*>(rpc::T_BOOL, &flag),
                                      {rpc::T_UINT32, &number},
                                      {rpc::T_UINT32_LIST, &numbers},
                                      {rpc::T_STRING, &text}}) {
        reply->params()->add(factory.new_param(type, value, 0));
    }
    reply->params()->add(
        factory.new_param(rpc::T_RECORD_LIST, new std::vector<rpc::IParams*>(records), 1));
    return owned<host::Message>(reply);
}

TEST(MessageTest, ReadsWhatItWrites)
{
    const owned<host::Message> reply = full_reply();
    const Bytes bytes = bytes_of(*reply);
    host::Message read_back("");
    ASSERT_NE(read(read_back, bytes), 0);
    EXPECT_TRUE(read_back.is_reply());
    EXPECT_EQ(read_back.code(), 0x840C000CU);
    const auto& params = read_back.all();
    ASSERT_EQ(params.size(), 5U);
    EXPECT_EQ(*static_cast<const unsigned char*>(params[0]->value()), 1);
    EXPECT_EQ(params[1]->number(), 0xFEDCBA98);
    EXPECT_EQ(params[2]->numbers(), (std::vector<unsigned int>{0, 4294967295U}));
    EXPECT_EQ(params[3]->text(), std::string("a\0\xFF", 3));
    ASSERT_EQ(params[4]->records().size(), 2U);
    EXPECT_EQ(params[4]->records()[0]->all()[0]->text(), params[3]->text());
    EXPECT_EQ(bytes_of(read_back), bytes);

    // Cut or lengthened anywhere, it is no message, and a buffer that is too small gets nothing.
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_EQ(read(read_back, Bytes(bytes.begin(), bytes.begin() + static_cast<long>(size))),
                  0);
        EXPECT_TRUE(read_back.all().empty());
    }
    Bytes longer = bytes;
    longer.push_back(0);
    EXPECT_EQ(read(read_back, longer), 0);
    Bytes buffer(bytes.size() - 1);
    EXPECT_EQ(reply->write(buffer.data(), static_cast<std::uint32_t>(buffer.size())), 0U);
}

TEST(MessageTest, RefusesClaimsBeyondItsBytes)
{
    const Bytes hostile[] = {
        {'X', 0, 0, 0, 0, 0, 0},                                             // no kind
        {'Q', 2, 0, 'a', 0, 0, 0, 0, 0},                                     // a NUL in the name
        {'Q', 255, 255, 'a'},                                                // name
        {'Q', 0, 0, 255, 255, 255, 255, 7, 0, 0, 0, 0},                      // parameters
        {'Q', 0, 0, 1, 0, 0, 0, 8, 255, 255, 255, 255, 0},                   // numbers
        {'Q', 0, 0, 1, 0, 0, 0, 13, 255, 255, 255, 255, 0},                  // text
        {'Q', 0, 0, 1, 0, 0, 0, 16, 255, 255, 255, 255, 0},                  // records
        {'Q', 0, 0, 1, 0, 0, 0, 99, 0, 0, 0, 0},                             // no type
        {'Q', 0, 0, 1, 0, 0, 0, 16, 1, 0, 0, 0, 1, 0, 0, 0, 16, 0, 0, 0, 0}, // records in a record
    };
    for (const Bytes& bytes : hostile) {
        host::Message message("");
        EXPECT_EQ(read(message, bytes), 0) << bytes.size();
        EXPECT_STREQ(message.func_name(), "");
    }
}

TEST(MessageTest, MakesNoParameterOfWhatIsNone)
{
    host::MsgFactory factory;
    const rpc::int32 number = 1;
    EXPECT_EQ(factory.new_param(99, &number, 0), nullptr);
    EXPECT_EQ(factory.new_param(rpc::T_UINT32, nullptr, 0), nullptr);
}

} // namespace
