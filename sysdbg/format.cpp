#include "sysdbg/format.h"

#include <sys/types.h>

#include <cstdint>

namespace sysdbg {

namespace {

struct Conversion {
    bool isLong = false;
    char padding = ' ';
    int width = 0;
    char kind = '\0';
};

class Output {
  public:
    Output(char* buffer, std::size_t bytes) : begin_(buffer), next_(buffer), last_(buffer + bytes - 1) {}

    void Put(char character) {
        if (next_ != last_) *next_++ = character;
    }
    void Put(const char* text) {
        for (; *text != '\0'; ++text)
            Put(*text);
    }
    void PutNumber(const Conversion& conversion, bool isNegative, unsigned long value, unsigned base) {
        char digits[3 * sizeof(value)];
        int count = 0;
        for (; value != 0 || count == 0; value /= base)
            digits[count++] = "0123456789abcdef"[value % base];
        const int room = conversion.width - count - (isNegative ? 1 : 0);
        if (isNegative && conversion.padding == '0') Put('-');
        for (int i = 0; i < room; ++i)
            Put(conversion.padding);
        if (isNegative && conversion.padding != '0') Put('-');
        while (count > 0)
            Put(digits[--count]);
    }
    std::size_t Finish() {
        *next_ = '\0';
        return static_cast<std::size_t>(next_ - begin_);
    }

  private:
    char* begin_;
    char* next_;
    char* last_;  // the last place for the terminator
};

// Reads the conversion after a '%' and moves `format` past it.
Conversion ReadConversion(const char*& format) {
    Conversion conversion;
    if (*format == '0') conversion.padding = *format++;
    for (; *format >= '0' && *format <= '9'; ++format)
        conversion.width = 10 * conversion.width + (*format - '0');
    // size_t is as wide as long on every Linux
    for (; *format == 'l' || *format == 'z'; ++format)
        conversion.isLong = true;
    if (*format != '\0') conversion.kind = *format++;
    return conversion;
}

}  // namespace

std::size_t FormatTextV(char* buffer, std::size_t bytes, const char* format, va_list arguments) {
    Output output(buffer, bytes);
    while (*format != '\0') {
        if (*format != '%') {
            output.Put(*format++);
            continue;
        }
        ++format;
        const Conversion conversion = ReadConversion(format);
        // NOLINTBEGIN(clang-analyzer-valist.Uninitialized): started by the caller, out of the analyzer's sight
        switch (conversion.kind) {
            case 's': {
                const char* text = va_arg(arguments, const char*);
                output.Put(text != nullptr ? text : "(null)");
                break;
            }
            case 'd': {
                const long value = conversion.isLong ? va_arg(arguments, long) : va_arg(arguments, int);
                const auto bits = static_cast<unsigned long>(value);
                output.PutNumber(conversion, value < 0, value < 0 ? -bits : bits, 10);
                break;
            }
            case 'u':
            case 'x': {
                const unsigned long value =
                    conversion.isLong ? va_arg(arguments, unsigned long) : va_arg(arguments, unsigned);
                output.PutNumber(conversion, false, value, conversion.kind == 'x' ? 16 : 10);
                break;
            }
            case 'p': {
                const auto value = reinterpret_cast<std::uintptr_t>(va_arg(arguments, void*));
                output.Put(value != 0 ? "0x" : "(nil)");
                if (value != 0) output.PutNumber(conversion, false, value, 16);
                break;
            }
            default:
                if (conversion.kind != '\0') output.Put(conversion.kind);
        }
        // NOLINTEND(clang-analyzer-valist.Uninitialized)
    }
    return output.Finish();
}

std::size_t FormatText(char* buffer, std::size_t bytes, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::size_t length = FormatTextV(buffer, bytes, format, arguments);
    va_end(arguments);
    return length;
}

}  // namespace sysdbg
