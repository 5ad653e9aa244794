#pragma once

#include "Debouncer.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <vector>

// Debouncer waits on a time of the test's own: advance() runs out, in order, every
// wait that falls due, so a test of a quiet period never sleeps.
class ManualWaits
{
public:
    ManualWaits() = default;
    ManualWaits(const ManualWaits&) = delete;
    ManualWaits& operator=(const ManualWaits&) = delete;

    Debouncer::WaitFactory factory()
    {
        return [this](std::function<void()> elapsed) {
            ++made;
            return std::make_unique<Wait>(*this, std::move(elapsed));
        };
    }

    void advance(std::chrono::milliseconds by)
    {
        const std::chrono::milliseconds until = now + by;
        for (;;) {
            Wait* next = nullptr;
            for (Wait* w : m_live) {
                if (w->active && w->deadline <= until && (!next || w->deadline < next->deadline))
                    next = w;
            }
            if (!next)
                break;
            now = next->deadline;
            next->active = false;
            next->elapsed();
        }
        now = until;
    }

    std::chrono::milliseconds now{0};
    int made = 0; // waits made, one per key of a debouncer

private:
    struct Wait final : Debouncer::Wait
    {
        Wait(ManualWaits& owner, std::function<void()> elapsed)
            : owner(owner)
            , elapsed(std::move(elapsed))
        {
            owner.m_live.push_back(this);
        }
        ~Wait() override { std::erase(owner.m_live, this); }
        void start(std::chrono::milliseconds delay) override
        {
            deadline = owner.now + delay;
            active = true;
        }
        void stop() override { active = false; }
        bool isActive() const override { return active; }

        ManualWaits& owner;
        std::function<void()> elapsed;
        std::chrono::milliseconds deadline{0};
        bool active = false;
    };
    std::vector<Wait*> m_live;
};
