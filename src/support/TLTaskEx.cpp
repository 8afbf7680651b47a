// Child processes started with posix_spawn, each leading a process group of
// its own, their pipes read with poll().
#include "TLTaskEx.h"

#include "TLLog.h"
#include "TLMainThread.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace {

// Where a bare name is looked for when PATH is unset, as the C library does.
constexpr const char *defaultSearchPath = "/usr/bin:/bin";

// Closes a descriptor once; -1 means nothing is open.
void closeDescriptor(int &descriptor)
{
    if (descriptor < 0)
        return;
    ::close(descriptor);
    descriptor = -1;
}

// A pipe whose ends are closed when it goes away; both ends close-on-exec so
// that no other child inherits them.
struct Pipe {
    int read = -1;
    int write = -1;

    Pipe() = default;
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;
    ~Pipe()
    {
        closeDescriptor(read);
        closeDescriptor(write);
    }

    bool open()
    {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC) != 0)
            return false;
        read = ends[0];
        write = ends[1];
        return true;
    }
};

// The null device, opened for reading and writing; -1 when it cannot be.
int openNullDevice()
{
    return ::open("/dev/null", O_RDWR | O_CLOEXEC);
}

std::vector<char *> argumentVector(const std::string &path, const std::vector<std::string> &arguments)
{
    std::vector<char *> vector;
    vector.push_back(const_cast<char *>(path.c_str()));
    for (const std::string &argument : arguments)
        vector.push_back(const_cast<char *>(argument.c_str()));
    vector.push_back(nullptr);
    return vector;
}

std::vector<std::string> environmentEntries(const TLTaskEx::Environment &environment)
{
    std::vector<std::string> entries;
    for (const auto &[name, value] : environment)
        entries.push_back(name + "=" + value);
    return entries;
}

// Latin-1 bytes as UTF-8, which is how bytes above 127 read as "ASCII".
std::string latin1ToUTF8(const std::string &bytes)
{
    std::string text;
    text.reserve(bytes.size());
    for (const char byte : bytes) {
        const auto unit = static_cast<unsigned char>(byte);
        if (unit < 0x80) {
            text.push_back(byte);
            continue;
        }
        text.push_back(static_cast<char>(0xC0 | (unit >> 6)));
        text.push_back(static_cast<char>(0x80 | (unit & 0x3F)));
    }
    return text;
}

std::string decoded(const std::optional<std::string> &data, TLTaskEx::Encoding encoding)
{
    if (!data)
        return {};
    return encoding == TLTaskEx::Encoding::ASCII ? latin1ToUTF8(*data) : *data;
}

// Reads what is available on `descriptor` into `buffer`; false at end of
// data (or on an error, which ends the capture just the same).
bool readAvailable(int descriptor, std::string &buffer)
{
    char chunk[65536];
    const ssize_t count = ::read(descriptor, chunk, sizeof chunk);
    if (count < 0 && (errno == EINTR || errno == EAGAIN))
        return true;
    if (count <= 0)
        return false;
    buffer.append(chunk, static_cast<std::size_t>(count));
    return true;
}

// Reads both pipes together until each has ended, so that a program that
// fills one pipe while the other is being waited on cannot stall.
void readUntilEnd(int &output, int &error, std::string &outputBuffer, std::string &errorBuffer)
{
    while (output >= 0 || error >= 0) {
        pollfd descriptors[2] = {{output, POLLIN, 0}, {error, POLLIN, 0}};
        if (::poll(descriptors, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        if (descriptors[0].revents != 0 && !readAvailable(output, outputBuffer))
            closeDescriptor(output);
        if (descriptors[1].revents != 0 && !readAvailable(error, errorBuffer))
            closeDescriptor(error);
    }
}

bool isBareName(const std::string &path)
{
    return !path.empty() && path.find('/') == std::string::npos;
}

// The file a launch of `path` would run, resolved the one safe way: an
// absolute path as it is, a bare name from PATH, a relative path never.
std::optional<std::string> programForPath(const std::string &path)
{
    if (isBareName(path))
        return TLTaskEx::programOnPath(path);
    if (path.empty() || path.front() != '/')
        return std::nullopt;
    return path;
}

bool refuseUnrunnable(const std::string &path)
{
    const std::optional<std::string> program = programForPath(path);
    if (program && TLTaskEx::isRunnable(*program))
        return false;
    TLLog::appendLogAndPrint("Error: %@ is not executable", path);
    return true;
}

// Launches with output and errors to the null device and no input.
std::shared_ptr<TLTaskEx::Task> launchDiscarding(const std::string &path,
                                                 const std::vector<std::string> &arguments,
                                                 bool searchPath, std::string &reason)
{
    int nullDevice = openNullDevice();
    auto task = std::make_shared<TLTaskEx::Task>(path, arguments);
    const bool launched = task->launch({nullDevice, nullDevice, nullDevice}, searchPath, reason);
    closeDescriptor(nullDevice);
    return launched ? task : nullptr;
}

} // namespace

// ---- Task -------------------------------------------------------------------

TLTaskEx::Task::Task(std::string launchPath, std::vector<std::string> arguments,
                     std::optional<Environment> environment)
    : m_launchPath(std::move(launchPath)), m_arguments(std::move(arguments)),
      m_environment(std::move(environment))
{
}

TLTaskEx::Task::~Task()
{
    const std::lock_guard lock(m_mutex);
    if (m_pid <= 0 || m_reaped)
        return;
    if (::waitpid(m_pid, nullptr, WNOHANG) != 0)
        return;
    // Still running: reap it whenever it ends rather than leave a zombie.
    std::thread([pid = m_pid] { ::waitpid(pid, nullptr, 0); }).detach();
}

bool TLTaskEx::Task::launch(const Streams &streams, bool searchPath, std::string &reason)
{
    const std::lock_guard lock(m_mutex);
    if (m_pid != 0) {
        reason = "task already launched";
        return false;
    }
    const bool bare = isBareName(m_launchPath);
    const std::optional<std::string> program =
        bare && !searchPath ? std::nullopt : programForPath(m_launchPath);
    if (!program) {
        reason = bare || m_launchPath.empty() ? std::strerror(ENOENT) : "a relative program path is not run";
        return false;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const int targets[3] = {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};
    const int sources[3] = {streams.input, streams.output, streams.error};
    for (int index = 0; index < 3; ++index) {
        if (sources[index] >= 0)
            posix_spawn_file_actions_adddup2(&actions, sources[index], targets[index]);
    }
    std::vector<char *> argv = argumentVector(m_launchPath, m_arguments);
    std::vector<std::string> entries;
    std::vector<char *> envp;
    char **environment = environ;
    if (m_environment) {
        entries = environmentEntries(*m_environment);
        for (std::string &entry : entries)
            envp.push_back(entry.data());
        envp.push_back(nullptr);
        environment = envp.data();
    }
    // A group of its own lets a time-out end whatever the program started,
    // such as a grandchild that keeps the output pipe open.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0);
    pid_t pid = 0;
    const int result =
        ::posix_spawn(&pid, program->c_str(), &actions, &attributes, argv.data(), environment);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (result != 0) {
        reason = std::strerror(result);
        return false;
    }
    m_pid = pid;
    return true;
}

pid_t TLTaskEx::Task::processIdentifier() const
{
    const std::lock_guard lock(m_mutex);
    return m_pid;
}

bool TLTaskEx::Task::isRunning() const
{
    const std::lock_guard lock(m_mutex);
    if (m_pid <= 0 || m_reaped)
        return false;
    // WNOWAIT leaves the reaping to waitUntilExit, so the pid cannot be
    // recycled while this object still names it.
    siginfo_t info{};
    if (::waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0)
        return false;
    return info.si_pid == 0;
}

bool TLTaskEx::Task::isProcessGroupRunning() const
{
    const std::lock_guard lock(m_mutex);
    if (m_pid <= 0 || m_reaped)
        return false;
    // Signal 0 only asks whether someone is there to receive it.
    return ::kill(-m_pid, 0) == 0 || ::kill(m_pid, 0) == 0;
}

void TLTaskEx::Task::terminate()
{
    sendSignal(SIGTERM);
}

void TLTaskEx::Task::kill()
{
    sendSignal(SIGKILL);
}

void TLTaskEx::Task::sendSignal(int signal)
{
    const std::lock_guard lock(m_mutex);
    // Until the program is reaped its pid (a zombie's included) cannot be
    // reused, so neither can its group's number: the signals reach no
    // stranger. The program itself is signalled too, in case it left the
    // group.
    if (m_pid <= 0 || m_reaped)
        return;
    ::kill(-m_pid, signal);
    ::kill(m_pid, signal);
}

int TLTaskEx::Task::waitUntilExit()
{
    pid_t pid = 0;
    {
        const std::lock_guard lock(m_mutex);
        if (m_pid <= 0)
            return -1;
        if (m_reaped)
            return m_status;
        pid = m_pid;
    }
    // Wait without the lock (so terminate() stays possible), reap with it.
    siginfo_t info{};
    while (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) != 0 && errno == EINTR) {
    }
    const std::lock_guard lock(m_mutex);
    if (m_reaped)
        return m_status;
    int status = 0;
    if (::waitpid(pid, &status, 0) == pid)
        m_status = WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status);
    m_reaped = true;
    return m_status;
}

// ---- Slot -------------------------------------------------------------------

void TLTaskEx::Slot::set(std::shared_ptr<Task> task)
{
    Ending ending = Ending::none;
    {
        const std::lock_guard lock(m_mutex);
        m_task = task;
        ending = m_ending;
    }
    // A time-out shorter than the launch has passed before the task exists.
    endTask(task, ending);
}

void TLTaskEx::Slot::end(Ending ending)
{
    std::shared_ptr<Task> task;
    {
        const std::lock_guard lock(m_mutex);
        m_ending = std::max(m_ending, ending);
        task = m_task;
    }
    endTask(task, ending);
}

void TLTaskEx::Slot::reset()
{
    const std::lock_guard lock(m_mutex);
    m_task = nullptr;
    m_ending = Ending::none;
}

std::shared_ptr<TLTaskEx::Task> TLTaskEx::Slot::get() const
{
    const std::lock_guard lock(m_mutex);
    return m_task;
}

// ---- Class-level forms ------------------------------------------------------

struct TLTaskEx::TimeoutState {
    std::mutex mutex;
    std::condition_variable changed;
    bool cancelled = false;
};

struct TLTaskEx::AsyncState {
    std::mutex mutex;
    Delegate delegate;
    std::any object;
    std::atomic<bool> stopped = false;
    std::shared_ptr<Slot> slot;
};

TLTaskEx::TLTaskEx() = default;

TLTaskEx::~TLTaskEx()
{
    terminateAsyncTask();
    if (!m_asyncThread.joinable())
        return;
    if (m_asyncThread.get_id() == std::this_thread::get_id())
        m_asyncThread.detach();
    else
        m_asyncThread.join();
}

bool TLTaskEx::isRunnable(const std::string &path)
{
    struct stat status{};
    if (path.empty() || path.front() != '/' || ::stat(path.c_str(), &status) != 0)
        return false;
    return S_ISREG(status.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

std::optional<std::string> TLTaskEx::programOnPath(const std::string &name)
{
    if (!isBareName(name))
        return std::nullopt;
    const char *variable = std::getenv("PATH");
    std::istringstream folders(variable ? variable : defaultSearchPath);
    std::string folder;
    while (std::getline(folders, folder, ':')) {
        if (folder.empty() || folder.front() != '/')
            continue;
        const std::string candidate = folder + "/" + name;
        if (isRunnable(candidate))
            return candidate;
    }
    return std::nullopt;
}

bool TLTaskEx::runTask(const std::string &path, const std::vector<std::string> &arguments, Slot *task)
{
    const bool bare = isBareName(path);
    if (!bare && refuseUnrunnable(path))
        return false;
    std::string reason;
    const std::shared_ptr<Task> launched = launchDiscarding(path, arguments, bare, reason);
    if (!launched) {
        TLLog::appendLog("Exception running task %@: %@", path, reason);
        return false;
    }
    if (task)
        task->set(launched);
    launched->waitUntilExit();
    return true;
}

std::shared_ptr<TLTaskEx::Task> TLTaskEx::runTaskAndReturn(const std::string &path,
                                                           const std::vector<std::string> &arguments)
{
    if (refuseUnrunnable(path))
        return nullptr;
    std::string reason;
    std::shared_ptr<Task> launched = launchDiscarding(path, arguments, true, reason);
    if (!launched)
        TLLog::appendLogAndPrint("Exception running task %@: %@", path, reason);
    return launched;
}

bool TLTaskEx::runTask(const std::string &path, const std::vector<std::string> &arguments, double timeout)
{
    TLTaskEx runner;
    return runner.runTaskWithTimeout(path, arguments, timeout);
}

std::string TLTaskEx::stringFromTask(const std::string &path, const std::vector<std::string> &arguments,
                                     Encoding encoding, Slot *task)
{
    return decoded(dataFromTask(path, arguments, task), encoding);
}

std::string TLTaskEx::stringFromTask(const std::string &path, const std::vector<std::string> &arguments,
                                     Slot *task)
{
    return stringFromTask(path, arguments, Encoding::ASCII, task);
}

std::string TLTaskEx::stringFromTask(const std::string &path, const std::vector<std::string> &arguments,
                                     double timeout, Encoding encoding, bool logOutput, bool logError)
{
    return decoded(dataFromTask(path, arguments, timeout, logOutput, logError), encoding);
}

std::optional<std::string> TLTaskEx::dataFromTask(const std::string &path,
                                                  const std::vector<std::string> &arguments, Slot *task,
                                                  const std::optional<Environment> &environment,
                                                  bool logOutput, bool logError)
{
    if (refuseUnrunnable(path))
        return std::nullopt;
    Pipe input, output, error;
    int nullDevice = -1;
    if (!input.open() || (logOutput && !output.open()) || (logError && !error.open())) {
        TLLog::appendLogAndPrint("Exception running task %@: %@", path, std::strerror(errno));
        return std::nullopt;
    }
    if (!logError)
        nullDevice = openNullDevice();
    auto launched = std::make_shared<Task>(path, arguments, environment);
    std::string reason;
    const bool started = launched->launch(
        {input.read, logOutput ? output.write : -1, logError ? error.write : nullDevice}, true,
        reason);
    closeDescriptor(nullDevice);
    if (!started) {
        TLLog::appendLogAndPrint("Exception running task %@: %@", path, reason);
        return std::nullopt;
    }
    if (task)
        task->set(launched);
    // Only the child may hold the write ends now, so the end of data comes
    // when it (and whatever it started) has closed them. Nothing is ever
    // written to its input, which therefore ends at once.
    closeDescriptor(input.write);
    closeDescriptor(output.write);
    closeDescriptor(error.write);
    std::string outputBuffer, errorBuffer;
    readUntilEnd(output.read, error.read, outputBuffer, errorBuffer);
    return outputBuffer.empty() && !errorBuffer.empty() ? errorBuffer : outputBuffer;
}

std::optional<std::string> TLTaskEx::dataFromTask(const std::string &path,
                                                  const std::vector<std::string> &arguments,
                                                  double timeout, bool logOutput, bool logError)
{
    TLTaskEx runner;
    return runner.dataFromTaskWithTimeout(path, arguments, timeout, logOutput, logError);
}

int TLTaskEx::terminationCodeFromTask(const std::string &path, const std::vector<std::string> &arguments,
                                      Slot *task)
{
    if (refuseUnrunnable(path))
        return -1;
    std::string reason;
    const std::shared_ptr<Task> launched = launchDiscarding(path, arguments, true, reason);
    if (!launched) {
        TLLog::appendLogAndPrint("Exception running task %@: %@", path, reason);
        return -1;
    }
    if (task)
        task->set(launched);
    return launched->waitUntilExit();
}

int TLTaskEx::terminationCodeFromTask(const std::string &path, const std::vector<std::string> &arguments,
                                      double timeout)
{
    TLTaskEx runner;
    return runner.terminationCodeFromTaskWithTimeout(path, arguments, timeout);
}

// ---- Time-out ---------------------------------------------------------------

template <typename Result, typename Run>
Result TLTaskEx::runUnderTimeout(double timeout, Run &&run)
{
    // The slot is ready before the time-out thread starts: a time-out under
    // a second wakes at once, possibly before the task is published, and
    // the slot then ends the task as it arrives.
    m_theTask->reset();
    setupTimeout(timeout);
    Result result = run(m_theTask.get());
    // The time-out thread may still be asleep: it must not act on a later
    // run, so it is cancelled before the slot is cleared.
    {
        const std::lock_guard lock(m_timeout->mutex);
        m_timeout->cancelled = true;
    }
    m_timeout->changed.notify_all();
    m_theTask->reset();
    return result;
}

bool TLTaskEx::runTaskWithTimeout(const std::string &path, const std::vector<std::string> &arguments,
                                  double timeout)
{
    return runUnderTimeout<bool>(timeout, [&](Slot *slot) { return runTask(path, arguments, slot); });
}

std::optional<std::string> TLTaskEx::dataFromTaskWithTimeout(const std::string &path,
                                                             const std::vector<std::string> &arguments,
                                                             double timeout, bool logOutput,
                                                             bool logError)
{
    return runUnderTimeout<std::optional<std::string>>(timeout, [&](Slot *slot) {
        return dataFromTask(path, arguments, slot, std::nullopt, logOutput, logError);
    });
}

int TLTaskEx::terminationCodeFromTaskWithTimeout(const std::string &path,
                                                 const std::vector<std::string> &arguments,
                                                 double timeout)
{
    return runUnderTimeout<int>(timeout, [&](Slot *slot) {
        return terminationCodeFromTask(path, arguments, slot);
    });
}

void TLTaskEx::setupTimeout(double seconds)
{
    // Whole seconds only: 0.9 means no wait at all.
    const long wholeSeconds = seconds > 0 ? static_cast<long>(seconds) : 0;
    m_timeout = std::make_shared<TimeoutState>();
    // The thread owns what it needs, as the run may be long over when it wakes.
    std::thread([state = m_timeout, slot = m_theTask, wholeSeconds] {
        const auto finishedWithin = [&](std::chrono::seconds wait) {
            std::unique_lock lock(state->mutex);
            return state->changed.wait_for(lock, wait, [&] { return state->cancelled; });
        };
        if (finishedWithin(std::chrono::seconds(wholeSeconds)))
            return;
        endUnlessFinished(*state, *slot, Slot::Ending::terminate);
        if (finishedWithin(terminationGracePeriod))
            return;
        endUnlessFinished(*state, *slot, Slot::Ending::kill);
    }).detach();
}

void TLTaskEx::endUnlessFinished(TimeoutState &state, Slot &slot, Slot::Ending ending)
{
    TLMainThread::shared()->performAndWait([&] {
        // Checked under the lock the run takes to cancel, so that a run that
        // has just finished is never ended, nor the next run of the runner.
        const std::lock_guard lock(state.mutex);
        if (!state.cancelled)
            slot.end(ending);
    });
}

void TLTaskEx::timeout()
{
    m_theTask->end(Slot::Ending::terminate);
}

void TLTaskEx::endTask(const std::shared_ptr<Task> &task, Slot::Ending ending)
{
    if (!task || ending == Slot::Ending::none)
        return;
    if (!task->isRunning() && !task->isProcessGroupRunning())
        return;
    if (ending == Slot::Ending::terminate) {
        TLLog::appendLogAndPrint("Task %@ timed out. Terminating...", task->launchPath());
        task->terminate();
        return;
    }
    TLLog::appendLogAndPrint("Task %@ did not end. Killing...", task->launchPath());
    task->kill();
}

// ---- Asynchronous output ----------------------------------------------------

void TLTaskEx::asyncDataFromTask(const std::string &path, const std::vector<std::string> &arguments,
                                 Delegate delegate, std::any object,
                                 const std::optional<Environment> &environment)
{
    if (m_asyncThread.joinable()) {
        if (m_async && !m_async->stopped)
            return;
        // A delegate may start the next run from inside its end-of-data call.
        if (m_asyncThread.get_id() == std::this_thread::get_id())
            m_asyncThread.detach();
        else
            m_asyncThread.join();
    }
    // Known at once, so said at once rather than by a thread that the
    // runner's end may overtake.
    if (const std::optional<std::string> program = programForPath(path); !program || !isRunnable(*program)) {
        TLLog::appendLog("Unable to launch async task - task does not exist or is not executable");
        return;
    }
    m_async = std::make_shared<AsyncState>();
    m_async->delegate = std::move(delegate);
    m_async->object = std::move(object);
    m_async->slot = m_theTask;
    m_theTask->set(std::make_shared<Task>(path, arguments, environment));
    m_asyncThread = std::thread(launchAsyncTask, m_async, this);
}

void TLTaskEx::terminateTask()
{
    terminateAsyncTask();
}

void TLTaskEx::terminateAsyncTask()
{
    if (m_async)
        stopAsync(*m_async);
}

void TLTaskEx::stopAsync(AsyncState &state)
{
    {
        const std::lock_guard lock(state.mutex);
        state.stopped = true;
        state.delegate = nullptr;
        state.object.reset();
    }
    if (const std::shared_ptr<Task> task = state.slot->get())
        task->terminate();
    state.slot->set(nullptr);
}

void TLTaskEx::deliverAsyncData(AsyncState &state, TLTaskEx *runner, const std::string &data)
{
    Delegate delegate;
    std::any object;
    {
        const std::lock_guard lock(state.mutex);
        if (state.stopped)
            return;
        delegate = state.delegate;
        object = state.object;
    }
    if (delegate)
        delegate(data, *runner, object);
}

void TLTaskEx::launchAsyncTask(std::shared_ptr<AsyncState> state, TLTaskEx *runner)
{
    try {
        const std::shared_ptr<Task> task = state->slot->get();
        if (!task) {
            TLLog::appendLogAndPrint("Unable to launch async task - no task set");
            return;
        }
        const std::optional<std::string> program = programForPath(task->launchPath());
        if (!program || !isRunnable(*program)) {
            TLLog::appendLog("Unable to launch async task - task does not exist or is not executable");
            return;
        }
        Pipe output;
        int nullDevice = openNullDevice();
        std::string reason;
        const bool started = output.open()
            && task->launch({nullDevice, output.write, nullDevice}, true, reason);
        closeDescriptor(nullDevice);
        closeDescriptor(output.write);
        if (!started)
            throw std::runtime_error(reason.empty() ? std::strerror(errno) : reason);
        std::string chunk;
        while (!state->stopped) {
            pollfd descriptor{output.read, POLLIN, 0};
            // A short poll lets terminateAsyncTask stop the loop even when
            // something the program started keeps the pipe open.
            if (::poll(&descriptor, 1, 100) <= 0)
                continue;
            chunk.clear();
            if (!readAvailable(output.read, chunk))
                break;
            if (!chunk.empty())
                deliverAsyncData(*state, runner, chunk);
        }
        closeDescriptor(output.read);
        // The empty chunk tells the delegate that the output has ended; the
        // delegate may release the runner in it, so only the shared state is
        // touched afterwards.
        deliverAsyncData(*state, runner, std::string());
        stopAsync(*state);
        task->waitUntilExit();
    } catch (const std::exception &exception) {
        TLLog::appendLog("Exception: %@", exception.what());
    }
}
