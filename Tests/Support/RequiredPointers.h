// All pointers that a call requires, in one line.
#ifndef KIV_TEST_REQUIRED_POINTERS_H
#define KIV_TEST_REQUIRED_POINTERS_H

#include "ArgumentCheck.h"

#include <algorithm>
#include <cstddef>
#include <tuple>
#include <type_traits>

// Makes the call once for each pointer among the arguments, with null in its place. `texts` has the failed
// expression for each of these pointers, separated by ", "; "-" stands for a pointer that may be null, and
// "!" for one that is refused without an assertion. Without arguments the call gets zeroed records and ones.
#define KIV_REQUIRES_EACH(operation, texts, ...)                                                             \
    kiv::test::expectEachRequired(#operation, operation, texts, "" __VA_OPT__(, ) __VA_ARGS__)

// The same for expressions of the form "(name) != NULL", given by the names alone.
#define KIV_REQUIRES_NOT_NULL(operation, names, ...)                                                         \
    kiv::test::expectEachRequired(#operation, operation, names, ") != NULL" __VA_OPT__(, ) __VA_ARGS__)

namespace kiv::test
{
template <class Result, class... Parameters>
void expectEachRequired(const char *name, Result (*operation)(Parameters...), std::string_view texts,
                        const std::string &end, std::type_identity_t<Parameters>... arguments)
{
    const auto expectAt = [&]<size_t At>(std::integral_constant<size_t, At>)
    {
        if constexpr (std::is_pointer_v<std::tuple_element_t<At, std::tuple<Parameters...>>>)
        {
            const std::string text{texts.substr(0, texts.find(", "))};
            texts.remove_prefix(std::min(texts.size(), text.size() + 2));
            std::tuple<Parameters...> given{arguments...};
            std::get<At>(given) = nullptr;
            const auto call = [&]
            {
                if constexpr (std::is_same_v<Result, KIVCS2Status>)
                    return std::apply(operation, given);
                static_cast<void>(std::apply(operation, given));
                return KIVCS2STATUS_PARAM_ERR;
            };
            if (text == "!")
                EXPECT_EQ(call(), KIVCS2STATUS_PARAM_ERR) << name << ", argument " << At;
            else if (text != "-")
                expectRefused(
                    {name, (end.empty() ? text : "(" + text + end).c_str(), KIVCS2STATUS_PARAM_ERR, call});
        }
    };
    [&]<size_t... At>(std::index_sequence<At...>)
    {
        (expectAt(std::integral_constant<size_t, At>{}), ...);
    }
    (std::index_sequence_for<Parameters...>{});
    EXPECT_EQ(texts, "") << "of more pointers than " << name << " has";
}

// An argument that no check refuses: a pointer to zeros, or 1.
template <class Parameter>
Parameter anything()
{
    alignas(std::max_align_t) static char zeros[4096];
    if constexpr (!std::is_pointer_v<Parameter>)
        return static_cast<Parameter>(1);
    else if constexpr (std::is_function_v<std::remove_pointer_t<Parameter>>)
        return reinterpret_cast<Parameter>(+[] {});
    else
        return reinterpret_cast<Parameter>(zeros);
}

template <class Result, class... Parameters>
void expectEachRequired(const char *name, Result (*operation)(Parameters...), std::string_view texts,
                        const std::string &end) requires(sizeof...(Parameters) > 0)
{
    expectEachRequired(name, operation, texts, end, anything<Parameters>()...);
}
} // namespace kiv::test

#endif
