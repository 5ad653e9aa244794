#pragma once

#include "APIError.h"

#include <utility>
#include <variant>

// A value or the APIError that prevented it.
template <typename T> class APIResult
{
public:
    // A default value; only for generic code that needs to construct one first.
    APIResult() = default;
    APIResult(T value)
        : m_state(std::move(value))
    {}
    APIResult(APIError error)
        : m_state(std::move(error))
    {}

    bool ok() const { return m_state.index() == 0; }
    explicit operator bool() const { return ok(); }
    const T& value() const& { return std::get<0>(m_state); }
    T&& value() && { return std::get<0>(std::move(m_state)); }
    const APIError& error() const { return std::get<1>(m_state); }

private:
    std::variant<T, APIError> m_state;
};
