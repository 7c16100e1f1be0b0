#pragma once

#include "State.h"

#include <functional>
#include <string>

namespace tapesim {

// The state folder: "state.ini" plus "state.lock". Every access holds an
// exclusive flock on the lock file and a change is written to a temporary file
// and renamed over the old one, so concurrent tools never see half a file.
class StateStore
{
public:
    // `dry`: changes are computed but never written (used when a fault only
    // wants the shape of a run's output).
    StateStore(std::string folder, bool dry);

    // Runs `change` on the current state under the lock; saves if it changed.
    // Throws std::runtime_error when the folder cannot be used.
    void update(const std::function<void(State &)> &change);
    State snapshot();
    // update() for a state that must already exist: false, with nothing
    // created, when the folder or its state file is gone.
    bool updateExisting(const std::function<void(State &)> &change);

    const std::string &folder() const { return m_folder; }

private:
    std::string m_folder;
    bool m_dry;
};

// TAPESIM_HOME, else $XDG_DATA_HOME/tapedesk-sim, else ~/.local/share/tapedesk-sim.
std::string defaultStateFolder();

long long nowMs();

} // namespace tapesim
