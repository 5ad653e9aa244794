#pragma once

// The services' property setters: a value that changes is stored and announced, one
// that does not is neither.
class Notify
{
public:
    template <typename Owner, typename T>
    static void set(Owner* owner, T& field, const T& value, void (Owner::*changed)())
    {
        if (field == value)
            return;
        field = value;
        (owner->*changed)();
    }
};
