// The part of fmt that needs no templates, compiled once. As headers alone (FMT_HEADER_ONLY) every file would compile
// it again, which doubles the time that the tool takes to build; Debian has it as a shared library, which a device
// would have to carry.
#include <fmt/format-inl.h>

namespace fmt {
inline namespace v9 {
namespace detail {

template auto thousands_sep_impl<char>(locale_ref) -> thousands_sep_result<char>;
template auto decimal_point_impl<char>(locale_ref) -> char;
template auto locale_ref::get<std::locale>() const -> std::locale;
template auto dragonbox::to_decimal(double x) noexcept -> dragonbox::decimal_fp<double>;
template void buffer<char>::append(const char*, const char*);
template void vformat_to(buffer<char>&, basic_string_view<char>, basic_format_args<FMT_BUFFER_CONTEXT(char)>,
                         locale_ref);

}  // namespace detail
}  // namespace v9
}  // namespace fmt
