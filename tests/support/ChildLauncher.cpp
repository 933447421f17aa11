#include "ChildLauncher.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QFile>
#include <vector>

QStringList childLauncher() {
    const QString command = qEnvironmentVariableIsSet("ARTICLEMANAGER_CHILD_LAUNCHER")
                                ? qEnvironmentVariable("ARTICLEMANAGER_CHILD_LAUNCHER")
                                : QStringLiteral(ARTICLEMANAGER_EMULATOR);
    QStringList words = command.split(QLatin1Char(' '));
    words.removeAll(QString());
    return words;
}

QStringList childCommand(const QString& program, const QStringList& arguments,
                         QStringList* environment) {
    QStringList command = childLauncher();
    if (!command.isEmpty() && environment) {
        for (int i = environment->size() - 1; i >= 0; --i) {
            if (environment->at(i).startsWith(QLatin1String("LD_PRELOAD="))) {
                command.insert(1, environment->takeAt(i));
                command.insert(1, QStringLiteral("-E"));
            }
        }
    }
    return command + QStringList{program} + arguments;
}

namespace {

struct Pipe {
    int fd[2] = {-1, -1};
    bool open() { return pipe2(fd, O_CLOEXEC) == 0; }
    ~Pipe() {
        for (int end : fd) {
            if (end >= 0) {
                close(end);
            }
        }
    }
    int take(int end) {
        const int taken = fd[end];
        fd[end] = -1;
        return taken;
    }
};

std::vector<QByteArray> bytesOf(const QStringList& words) {
    std::vector<QByteArray> bytes;
    for (const QString& word : words) {
        bytes.push_back(word.toLocal8Bit());
    }
    return bytes;
}

}  // namespace

ChildOutcome runChild(const QStringList& command, const QByteArray& input,
                      const QStringList& environment, const QString& folder, int timeoutMs) {
    ChildOutcome outcome;
    Pipe in, out, err;
    if (command.isEmpty() || !in.open() || !out.open() || !err.open()) {
        return outcome;
    }
    // Everything the child needs is made before the fork: it only redirects and execs.
    std::vector<QByteArray> argv = bytesOf(command);
    std::vector<QByteArray> settings = bytesOf(environment);
    std::vector<char*> args;
    for (QByteArray& word : argv) {
        args.push_back(word.data());
    }
    args.push_back(nullptr);
    const QByteArray where = QFile::encodeName(folder);
    const pid_t pid = fork();
    if (pid < 0) {
        return outcome;
    }
    if (pid == 0) {
        if (dup2(in.fd[0], 0) < 0 || dup2(out.fd[1], 1) < 0 || dup2(err.fd[1], 2) < 0 ||
            (!where.isEmpty() && chdir(where.constData()) != 0)) {
            _exit(127);
        }
        for (QByteArray& setting : settings) {
            putenv(setting.data());
        }
        execvp(args[0], args.data());
        _exit(127);
    }
    close(in.take(0));
    close(out.take(1));
    close(err.take(1));
    // Feeds the input and drains both outputs together, so that no pipe fills and blocks.
    signal(SIGPIPE, SIG_IGN);
    qsizetype written = 0;
    if (input.isEmpty()) {
        close(in.take(1));
    }
    QElapsedTimer clock;
    clock.start();
    bool timedOut = false;
    while (out.fd[0] >= 0 || err.fd[0] >= 0) {
        pollfd fds[3] = {{out.fd[0], POLLIN, 0}, {err.fd[0], POLLIN, 0}, {in.fd[1], POLLOUT, 0}};
        const int left = timeoutMs - int(clock.elapsed());
        if (left <= 0) {
            timedOut = true;
            break;
        }
        if (poll(fds, 3, left) < 0) {
            continue;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd >= 0 && fds[i].revents) {
                char buffer[65536];
                const ssize_t n = read(fds[i].fd, buffer, sizeof buffer);
                if (n > 0) {
                    (i == 0 ? outcome.out : outcome.err).append(buffer, int(n));
                } else {
                    close((i == 0 ? out : err).take(0));
                }
            }
        }
        if (fds[2].fd >= 0 && fds[2].revents) {
            const ssize_t n = write(in.fd[1], input.constData() + written, input.size() - written);
            written += n > 0 ? n : 0;
            if (n <= 0 || written == input.size()) {
                close(in.take(1));
            }
        }
    }
    if (timedOut) {
        kill(pid, SIGKILL);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    outcome.exit = !timedOut && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}
