#include "StateStore.h"

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <sys/file.h>
#include <unistd.h>

namespace tapesim {

namespace {

[[noreturn]] void fail(const std::string &what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

class FileLock
{
public:
    explicit FileLock(const std::string &path)
        : m_fd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644))
    {
        if (m_fd < 0)
            fail("cannot open " + path);
        while (::flock(m_fd, LOCK_EX) != 0) {
            if (errno != EINTR)
                fail("cannot lock " + path);
        }
    }
    ~FileLock() { ::close(m_fd); }
    FileLock(const FileLock &) = delete;
    FileLock &operator=(const FileLock &) = delete;

private:
    int m_fd;
};

bool readAll(const std::string &path, std::string &text)
{
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        if (errno == ENOENT)
            return false;
        fail("cannot read " + path);
    }
    char buf[8192];
    for (;;) {
        const ssize_t n = ::read(fd, buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        text.append(buf, static_cast<size_t>(n));
    }
    ::close(fd);
    return true;
}

void writeAtomically(const std::string &path, const std::string &text)
{
    const std::string temp = path + ".tmp." + std::to_string(::getpid());
    const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        fail("cannot write " + temp);
    size_t done = 0;
    while (done < text.size()) {
        const ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            ::close(fd);
            fail("cannot write " + temp);
        }
        done += static_cast<size_t>(n);
    }
    ::fsync(fd);
    ::close(fd);
    if (::rename(temp.c_str(), path.c_str()) != 0)
        fail("cannot replace " + path);
}

} // namespace

StateStore::StateStore(std::string folder, bool dry) : m_folder(std::move(folder)), m_dry(dry) {}

void StateStore::update(const std::function<void(State &)> &change)
{
    std::error_code ec;
    std::filesystem::create_directories(m_folder, ec);
    if (ec)
        throw std::runtime_error("cannot create " + m_folder + ": " + ec.message());
    FileLock lock(m_folder + "/state.lock");
    const std::string path = m_folder + "/state.ini";
    std::string before;
    const bool existed = readAll(path, before);
    State state = existed ? State::parse(before) : State::defaults();
    state.pruneMounts();
    change(state);
    const std::string after = state.serialize();
    if (!m_dry && (!existed || after != before))
        writeAtomically(path, after);
}

bool StateStore::updateExisting(const std::function<void(State &)> &change)
{
    const std::string path = m_folder + "/state.ini";
    if (!std::filesystem::exists(path))
        return false;
    bool present = false;
    try {
        FileLock lock(m_folder + "/state.lock");
        std::string before;
        present = readAll(path, before);
        if (!present)
            return false;
        State state = State::parse(before);
        state.pruneMounts();
        change(state);
        const std::string after = state.serialize();
        if (!m_dry && after != before)
            writeAtomically(path, after);
    } catch (const std::runtime_error &) {
        return false; // the folder went away under us
    }
    return present;
}

State StateStore::snapshot()
{
    State copy;
    update([&](State &s) { copy = s; });
    return copy;
}

std::string defaultStateFolder()
{
    if (const char *home = std::getenv("TAPESIM_HOME"); home && *home)
        return home;
    if (const char *data = std::getenv("XDG_DATA_HOME"); data && *data)
        return std::string(data) + "/tapedesk-sim";
    const char *home = std::getenv("HOME");
    return std::string(home ? home : ".") + "/.local/share/tapedesk-sim";
}

long long nowMs()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

} // namespace tapesim
