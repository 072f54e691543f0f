// The reference host's wire format: what it writes it reads, and what is no message it refuses.
#include "host/message.h"

#include <gtest/gtest.h>

namespace
{

using Bytes = std::string;

int read(host::Message& message, const Bytes& bytes)
{
    return message.read(reinterpret_cast<const unsigned char*>(bytes.data()),
                        static_cast<std::uint32_t>(bytes.size()));
}

template <std::size_t size>
Bytes bytes_of(const char (&text)[size])
{
    return {text, size - 1};
}

TEST(MessageTest, ReadsWhatItWrites)
{
    const Bytes bytes = bytes_of("R\x0C\0\x0C\x84\5\0\0\0"                    // code and count
                                 "\1\1"                                       // a flag
                                 "\7\x98\xBA\xDC\xFE"                         // a number
                                 "\x8\2\0\0\0\0\0\0\0\xFF\xFF\xFF\xFF"        // numbers
                                 "\xD\3\0\0\0a\0\xFF"                         // a text
                                 "\x10\2\0\0\0\1\0\0\0\xD\1\0\0\0b\0\0\0\0"); // records
    host::Message message("");
    ASSERT_NE(read(message, bytes), 0);
    EXPECT_EQ(message.code(), 0x840C000CU);
    const auto& params = message.all();
    ASSERT_EQ(params.size(), 5U);
    EXPECT_EQ(params[1]->number(), 0xFEDCBA98);
    EXPECT_EQ(params[3]->text(), bytes_of("a\0\xFF"));
    EXPECT_EQ(params[4]->records().at(0)->all().at(0)->text(), "b");
    Bytes written(message.size(), '?');
    auto* const buffer = reinterpret_cast<unsigned char*>(written.data());
    EXPECT_EQ(message.write(buffer, message.size() - 1), 0U); // too small: gets nothing
    EXPECT_EQ(message.write(buffer, message.size()), bytes.size());
    EXPECT_EQ(written, bytes);

    EXPECT_EQ(read(message, bytes + 'x'), 0);
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_EQ(read(message, bytes.substr(0, size)), 0);
        EXPECT_TRUE(message.all().empty());
    }
}

TEST(MessageTest, RefusesWhatIsNoMessageAndNoParameter)
{
    for (const Bytes& bytes : {
             bytes_of("X\0\0\0\0\0\0"),                                 // no kind
             bytes_of("Q\2\0a\0\0\0\0\0"),                              // a NUL in the name
             bytes_of("Q\xFF\xFF!"),                                    // too long a name
             bytes_of("Q\0\0\xFF\xFF\xFF\xFF\7\0\0\0\0"),               // too many parameters
             bytes_of("Q\0\0\1\0\0\0\x8\xFF\xFF\xFF\xFF\0"),            // numbers
             bytes_of("Q\0\0\1\0\0\0\xD\xFF\xFF\xFF\xFF\0"),            // characters
             bytes_of("Q\0\0\1\0\0\0\x10\xFF\xFF\xFF\xFF\0"),           // records
             bytes_of("Q\0\0\1\0\0\0\x63\0\0\0\0"),                     // no type
             bytes_of("Q\0\0\1\0\0\0\x10\1\0\0\0\1\0\0\0\x10\0\0\0\0"), // records in a record
         }) {
        host::Message message("");
        EXPECT_EQ(read(message, bytes), 0) << bytes;
        EXPECT_STREQ(message.func_name(), "");
    }
    const rpc::int32 number = 1;
    EXPECT_EQ(host::MsgFactory().new_param(99, &number, 0), nullptr);
    EXPECT_EQ(host::MsgFactory().new_param(rpc::T_UINT32, nullptr, 0), nullptr);
}

} // namespace
