#pragma once

#include "StateStore.h"

#include <string>
#include <string_view>
#include <vector>

namespace tapesim {

struct Line
{
    int fd; // 1 or 2
    std::string text;
};

// What a tool body writes to and waits with. A live context prints each line
// at once (a watcher sees progress as it happens) and sleeps for real; a dry
// context only records the lines, never sleeps and never saves state, so a
// fault can replay part of a run without its effects.
class Context
{
public:
    static Context live(double speed);
    static Context dry();

    void out(std::string_view line);
    void err(std::string_view line);
    // Sleeps `seconds` scaled by TAPESIM_SPEED.
    void wait(double seconds) const;

    bool isDry() const { return m_dry; }
    StateStore &store() { return m_store; }
    const std::vector<Line> &lines() const { return m_lines; }

private:
    Context(double speed, bool dry);
    void emit(int fd, std::string_view line);

    double m_speed;
    bool m_dry;
    StateStore m_store;
    std::vector<Line> m_lines;
};

// Writes all of `data` to `fd`, retrying short writes.
void writeFully(int fd, std::string_view data);

// TAPESIM_SPEED, default 1.0; 0 or below makes every wait instant.
double speedFromEnvironment();

} // namespace tapesim
