// The reference host's wire format: what it writes it reads, and what is no message it refuses.
#include "host/message.h"
#include "tests/fake_framework.h"

namespace
{

using Bytes = std::string;

bool reads(host::Message& message, const Bytes& bytes)
{
    const owned<fwbase::IDataBlock> block = raw_block(bytes);
    return message.read(block->data(), block->size()) != 0;
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
    ASSERT_TRUE(reads(message, bytes));
    EXPECT_EQ(message.code(), 0x840C000CU);
    EXPECT_EQ(message.all().at(1)->number(), 0xFEDCBA98);
    EXPECT_EQ(message.all().at(4)->records().at(0)->all().at(0)->text(), "b");
    Bytes written(message.size(), '?');
    auto* const buffer = reinterpret_cast<unsigned char*>(written.data());
    EXPECT_EQ(message.write(buffer, message.size() - 1), 0U); // too small: gets nothing
    EXPECT_EQ(message.write(buffer, message.size()), bytes.size());
    EXPECT_EQ(written, bytes);
    EXPECT_FALSE(reads(message, bytes + 'x'));
    for (std::size_t size = 0; size < bytes.size(); ++size) {
        EXPECT_FALSE(reads(message, bytes.substr(0, size)) || !message.all().empty());
    }
}

TEST(MessageTest, RefusesWhatIsNoMessage)
{
    for (const Bytes& bytes : {
             bytes_of("X\0\0\0\0\0\0"),                                 // no kind
             bytes_of("Q\2\0a\0\0\0\0\0"),                              // a NUL in the name
             bytes_of("Q\0\0\xFF\xFF\xFF\xFF\7\0\0\0\0"),               // too many parameters
             bytes_of("Q\0\0\1\0\0\0\x8\xFF\xFF\xFF\xFF\0"),            // numbers
             bytes_of("Q\0\0\1\0\0\0\xD\xFF\xFF\xFF\xFF\0"),            // characters
             bytes_of("Q\0\0\1\0\0\0\x10\xFF\xFF\xFF\xFF\0"),           // records
             bytes_of("Q\0\0\1\0\0\0\x63\0\0\0\0"),                     // no type
             bytes_of("Q\0\0\1\0\0\0\x10\1\0\0\0\1\0\0\0\x10\0\0\0\0"), // records in a record
         }) {
        host::Message message("");
        fake::largest_object = 0;
        EXPECT_FALSE(reads(message, bytes)) << bytes;
        EXPECT_LT(fake::largest_object, 1000U); // a claimed count alone allocates nothing
    }
}

} // namespace
