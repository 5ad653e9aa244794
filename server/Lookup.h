#pragma once

#include <optional>
#include <utility>

// What a look-up in the database found: the value, nothing, or no answer because
// the storage failed. The last is never to be taken for "nothing": an outage must
// not read as an unknown token or a wrong password.
template <typename T> struct Lookup
{
    std::optional<T> value;
    bool unavailable = false;

    static Lookup found(T v) { return {std::move(v), false}; }
    static Lookup missing() { return {std::nullopt, false}; }
    static Lookup failed() { return {std::nullopt, true}; }

    explicit operator bool() const { return value.has_value(); }
    const T& operator*() const { return *value; }
    const T* operator->() const { return &*value; }
};
