// Running external programs: synchronously (with or without their output,
// with an optional time-out) or asynchronously with output in chunks.
#pragma once

#include <any>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <sys/types.h>

// The only way the system starts a child process. Programs are started from
// an argument vector, never through a shell. A program is named by an
// absolute path or by a bare name looked up in the absolute folders of PATH;
// the working folder is never searched, and a relative path is never run.
// Each child leads a process group of its own, so that ending it ends
// whatever it started too. Every failure is logged through
// TLLog and turned into the form's failure value (false, nullopt, "" or -1);
// nothing here throws. A program's own exit status is not a failure, except
// for the exit-status forms, which return it.
//
// The class-level forms keep no state. An instance is needed for the
// time-out forms (one instance per call) and for the asynchronous form,
// which lives until its end-of-data call or terminateAsyncTask.
class TLTaskEx
{
public:
    using Environment = std::map<std::string, std::string>;

    // How captured bytes become text. ASCII is the default of the string
    // forms: bytes above 127 are read as Latin-1 characters, so nothing is
    // dropped but UTF-8 output comes back as one character per byte.
    enum class Encoding { ASCII, UTF8 };

    // One child process. Thread-safe: another thread may ask whether it runs
    // or terminate it while its owner waits for it.
    class Task
    {
    public:
        // Standard streams for the launch: a file descriptor, or -1 to
        // inherit the parent's.
        struct Streams {
            int input = -1;
            int output = -1;
            int error = -1;
        };

        Task(std::string launchPath, std::vector<std::string> arguments,
             std::optional<Environment> environment = std::nullopt);
        // Reaps the child when it has ended; a child still running is reaped
        // by a detached thread when it ends, so no zombie is left behind.
        ~Task();
        Task(const Task &) = delete;
        Task &operator=(const Task &) = delete;

        // Starts the program once, as the leader of a new process group.
        // `searchPath` looks a bare name up with programOnPath; a relative
        // path is refused. False with the reason in `reason` when it cannot
        // start (relative path, missing file, not executable, already
        // launched).
        bool launch(const Streams &streams, bool searchPath, std::string &reason);

        const std::string &launchPath() const { return m_launchPath; }
        // 0 before the launch.
        pid_t processIdentifier() const;
        // True from the launch until the program has ended.
        bool isRunning() const;
        // True while the program or anything left in its process group may
        // still run: from the launch until the program has been reaped and
        // its group is empty.
        bool isProcessGroupRunning() const;
        // Sends the terminate request (SIGTERM) to the program and its
        // process group; does nothing once the program has been reaped.
        void terminate();
        // The same with SIGKILL, which cannot be ignored.
        void kill();
        // Blocks until the program ends and returns its exit status, or the
        // number of the signal that ended it; -1 if it was never launched.
        int waitUntilExit();

    private:
        void sendSignal(int signal);

        std::string m_launchPath;
        std::vector<std::string> m_arguments;
        std::optional<Environment> m_environment;
        mutable std::mutex m_mutex;
        pid_t m_pid = 0;
        bool m_reaped = false;
        int m_status = -1;
    };

    // Where a running child is published as soon as it exists, so that
    // another thread (the time-out) can terminate it.
    class Slot
    {
    public:
        // Publishes `task`. When the run's time-out has already passed, the
        // task is ended at once, as the time-out would have ended it.
        void set(std::shared_ptr<Task> task);
        std::shared_ptr<Task> get() const;

    private:
        friend class TLTaskEx;
        // How far the ending of a timed-out run has gone.
        enum class Ending { none, terminate, kill };

        // Records `ending` and applies it to the published task, if any.
        void end(Ending ending);
        // Forgets the task and the ending, for the next run.
        void reset();

        mutable std::mutex m_mutex;
        std::shared_ptr<Task> m_task;
        Ending m_ending = Ending::none;
    };

    // How long a timed-out program has to end after the terminate request
    // before it is killed.
    static constexpr std::chrono::seconds terminationGracePeriod{2};

    // Receives each chunk of asynchronous output, in arrival order, then one
    // empty chunk at the end; `object` is the value given at the start
    // (empty when none). Called on a background thread.
    using Delegate = std::function<void(const std::string &data, TLTaskEx &runner,
                                        const std::any &object)>;

    TLTaskEx();
    // Stops an asynchronous run as terminateAsyncTask does and waits for its
    // thread (unless called from inside the delegate).
    ~TLTaskEx();
    TLTaskEx(const TLTaskEx &) = delete;
    TLTaskEx &operator=(const TLTaskEx &) = delete;

    // True for an absolute path to an existing executable file that is not
    // a folder (so an application bundle is refused). False for an empty or
    // relative path, which would be resolved against the working folder.
    static bool isRunnable(const std::string &path);
    // The first runnable file called `name` in the folders of PATH (or of
    // "/usr/bin:/bin" when PATH is unset). Empty and relative entries,
    // which stand for the working folder, are skipped. nullopt for an empty
    // name, a name holding "/", or no match.
    static std::optional<std::string> programOnPath(const std::string &name);

    // Runs the program with output and errors discarded and waits for it.
    // True when it ran to its end (whatever its exit status, also when it
    // was terminated). An absolute path must pass isRunnable and a relative
    // path is refused ("Error: %@ is not executable"); a bare name is looked
    // up with programOnPath, and a failing launch (a name not found
    // included) is logged as "Exception running task %@: %@".
    static bool runTask(const std::string &path, const std::vector<std::string> &arguments,
                        Slot *task = nullptr);
    // Launches with output and errors discarded and returns at once; null
    // (after logging) when the path is not runnable or will not launch.
    // Here and below a bare name is taken from programOnPath before the
    // runnability test, and a relative path is never runnable.
    static std::shared_ptr<Task> runTaskAndReturn(const std::string &path,
                                                  const std::vector<std::string> &arguments);
    // runTask under a time-out of `timeout` seconds (whole seconds).
    static bool runTask(const std::string &path, const std::vector<std::string> &arguments,
                        double timeout);

    // The captured output (see dataFromTask) decoded; "" when nothing could
    // be captured, including a path that is not runnable.
    static std::string stringFromTask(const std::string &path,
                                      const std::vector<std::string> &arguments,
                                      Encoding encoding = Encoding::ASCII, Slot *task = nullptr);
    static std::string stringFromTask(const std::string &path,
                                      const std::vector<std::string> &arguments, Slot *task);
    // The same under a time-out.
    static std::string stringFromTask(const std::string &path,
                                      const std::vector<std::string> &arguments, double timeout,
                                      Encoding encoding = Encoding::ASCII, bool logOutput = true,
                                      bool logError = true);

    // Runs the program and captures its output until both pipes end.
    // Standard output is captured when logOutput is set (else inherited),
    // standard error when logError is set (else discarded); standard input
    // is an empty pipe. Returns the output when there is any, else the
    // error text when there is any, else "". nullopt when the path is not
    // runnable or the launch fails. Without `environment` the child
    // inherits the parent's.
    static std::optional<std::string> dataFromTask(
        const std::string &path, const std::vector<std::string> &arguments, Slot *task = nullptr,
        const std::optional<Environment> &environment = std::nullopt, bool logOutput = true,
        bool logError = true);
    // The capture under a time-out.
    static std::optional<std::string> dataFromTask(const std::string &path,
                                                   const std::vector<std::string> &arguments,
                                                   double timeout, bool logOutput = true,
                                                   bool logError = true);

    // The program's exit status (output and errors discarded); -1 when the
    // path is not runnable or the launch fails.
    static int terminationCodeFromTask(const std::string &path,
                                       const std::vector<std::string> &arguments,
                                       Slot *task = nullptr);
    static int terminationCodeFromTask(const std::string &path,
                                       const std::vector<std::string> &arguments, double timeout);

    // Instance forms with a time-out: a separate thread sleeps the whole
    // seconds of `timeout` (0.9 becomes 0) and then, on the main thread,
    // terminates the program and its process group if any of it still runs
    // ("Task %@ timed out. Terminating..."), also when the program is
    // published only after that moment. What still runs after
    // terminationGracePeriod is killed ("Task %@ did not end. Killing...").
    // Results as the class-level forms.
    bool runTaskWithTimeout(const std::string &path, const std::vector<std::string> &arguments,
                            double timeout);
    std::optional<std::string> dataFromTaskWithTimeout(const std::string &path,
                                                       const std::vector<std::string> &arguments,
                                                       double timeout, bool logOutput = true,
                                                       bool logError = true);
    int terminationCodeFromTaskWithTimeout(const std::string &path,
                                           const std::vector<std::string> &arguments,
                                           double timeout);

    // Starts the program with its output to a pipe and errors discarded and
    // returns at once; a background thread hands each chunk to `delegate`,
    // then one empty chunk, then ends the run. A path that does not exist or
    // is not executable is logged there and no chunk is delivered. Does
    // nothing while an earlier asynchronous run of this runner is going on.
    void asyncDataFromTask(const std::string &path, const std::vector<std::string> &arguments,
                           Delegate delegate, std::any object = {},
                           const std::optional<Environment> &environment = std::nullopt);
    // terminateAsyncTask.
    void terminateTask();
    // Stops the asynchronous run: no further chunk is delivered, the
    // delegate and object are dropped and the program is terminated if it
    // still runs. Safe to call at any time, also from the delegate.
    void terminateAsyncTask();

    // The running child of this runner, or null.
    std::shared_ptr<Task> theTask() const { return m_theTask->get(); }

    // The time-out machinery: starts the thread that sleeps and then calls
    // timeout() on the main thread unless the run was finished first, and
    // kills what is left after the grace period.
    void setupTimeout(double seconds);
    // Terminates theTask() and its group if they still run, with a log line;
    // a task published later in the same run is terminated as it comes.
    void timeout();

private:
    struct TimeoutState;
    struct AsyncState;

    template <typename Result, typename Run>
    Result runUnderTimeout(double timeout, Run &&run);
    static void launchAsyncTask(std::shared_ptr<AsyncState> state, TLTaskEx *runner);
    static void endTask(const std::shared_ptr<Task> &task, Slot::Ending ending);
    static void endUnlessFinished(TimeoutState &state, Slot &slot, Slot::Ending ending);
    static void stopAsync(AsyncState &state);
    static void deliverAsyncData(AsyncState &state, TLTaskEx *runner, const std::string &data);

    // Shared with the time-out and asynchronous threads, which may outlive
    // a call that has already returned.
    std::shared_ptr<Slot> m_theTask = std::make_shared<Slot>();
    std::shared_ptr<TimeoutState> m_timeout;
    std::shared_ptr<AsyncState> m_async;
    std::thread m_asyncThread;
};
