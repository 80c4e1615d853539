#pragma once

#include <tl/expected.hpp>

namespace snipwren {
/// What an operation that can fail answers: a value, or one error of the component's enumeration.
template <class T, class E>
using Result = tl::expected<T, E>;
using tl::unexpected;
} // namespace snipwren
