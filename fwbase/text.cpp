#include "fwbase/text.h"

#include <iconv.h>

namespace fwbase
{

namespace
{

constexpr const char* replacement = "\xEF\xBF\xBD"; // U+FFFD

class Converter
{
public:
    Converter(const char* to, const char* from) : m_descriptor(iconv_open(to, from)) {}
    ~Converter()
    {
        if (is_open()) {
            iconv_close(m_descriptor);
        }
    }
    Converter(const Converter&) = delete;
    Converter& operator=(const Converter&) = delete;

    bool is_open() const { return m_descriptor != reinterpret_cast<iconv_t>(-1); }
    iconv_t get() const { return m_descriptor; }

private:
    iconv_t m_descriptor;
};

} // namespace

std::string gbk_to_utf8(const std::string& gbk)
{
    const Converter converter("UTF-8", "GBK");
    std::string utf8;
    char* from = const_cast<char*>(gbk.data()); // iconv does not write through it
    std::size_t left = gbk.size();
    while (left != 0) {
        char buffer[256];
        char* to = buffer;
        std::size_t room = sizeof buffer;
        const std::size_t before = left;
        if (converter.is_open()) {
            iconv(converter.get(), &from, &left, &to, &room);
        }
        utf8.append(buffer, to);
        if (left == before) { // no character was converted
            utf8 += replacement;
            ++from;
            --left;
        }
    }
    return utf8;
}

std::string printable(std::string text)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
        if (byte < ' ' || byte == 0x7F) {
            text[i] = '?';
        } else if (byte == 0xC2 && next >= 0x80 && next < 0xA0) { // U+0080 to U+009F
            text.replace(i, 2, "?");
        }
    }
    return text;
}

} // namespace fwbase
