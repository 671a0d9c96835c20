#pragma once

#include "tests/support/Folder.h"

#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace kx::test {

using Words = std::vector<std::string>;

struct Outcome {
    int status;
    std::string out, errors;
};

/// Runs the program with areas of its own.
class KxrunTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::filesystem::create_directory(Bundle());
        WriteWholeFile(Folder("in"), "");
    }

    std::filesystem::path Folder(const std::string& name) const { return m_folder.Path() / name; }
    std::filesystem::path Save() const { return Folder("save"); }
    std::filesystem::path Bundle() const { return Folder("bundle"); }

    Outcome Run(Words words) { return Start(InAreas(std::move(words))); }

    /// The command line of a run with the test's areas.
    Words InAreas(Words words) const {
        words.insert(words.begin(), {KXRUN, "--save", Save().string(), "--bundle", Bundle().string()});
        return words;
    }

    Outcome Start(Words words) { return Finish(Begin(std::move(words))); }

    /// Starts the program, with its streams in files.
    pid_t Begin(Words words) {
        pid_t child = ::fork();
        if (child == 0) {
            Redirect(Folder("in"), O_RDONLY, STDIN_FILENO);
            Redirect(Folder("out"), O_WRONLY | O_CREAT | O_TRUNC, STDOUT_FILENO);
            Redirect(Folder("errors"), O_WRONLY | O_CREAT | O_TRUNC, STDERR_FILENO);
            Become(words);
        }
        return child;
    }

    Outcome Finish(pid_t child) {
        int status = 0;
        ::waitpid(child, &status, 0);
        return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), ReadWholeFile(Folder("out")),
                ReadWholeFile(Folder("errors"))};
    }

    Outcome RunScript(const std::string& code, Words parameters = {}) {
        WriteWholeFile(Bundle() / "game.lua", code);
        parameters.insert(parameters.begin(), (Bundle() / "game.lua").string());
        return Run(parameters);
    }

    /// The program on a terminal of its own.
    class Terminal {
    public:
        Terminal(const KxrunTest& test, Words words) {
            words = test.InAreas(std::move(words));
            m_child = ::forkpty(&m_terminal, nullptr, nullptr, nullptr);
            if (m_child != 0) return;
            ::setenv("TERM", "xterm", 1);
            ::setenv("XDG_STATE_HOME", test.Folder("state").c_str(), 1);
            ::unsetenv("NO_COLOR");
            Become(words);
        }
        Terminal(const Terminal&) = delete;
        Terminal& operator=(const Terminal&) = delete;
        ~Terminal() {
            ::close(m_terminal);
            ::waitpid(m_child, nullptr, 0);
        }

        void Type(const std::string& text) {
            EXPECT_EQ(::write(m_terminal, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        }

        /// What the terminal shows from now until a text is among it, or until it is closed when the text is empty. A
        /// program that falls silent for a minute fails the test instead of hanging it.
        std::string ReadUntil(const std::string& text) {
            std::string shown;
            while (text.empty() || shown.find(text) == std::string::npos) {
                pollfd waiting{m_terminal, POLLIN, 0};
                if (::poll(&waiting, 1, 60000) == 0) {
                    ADD_FAILURE() << "silent after: " << shown;
                    return shown;
                }
                char part[4096];
                ssize_t count = ::read(m_terminal, part, sizeof part);
                if (count <= 0) return shown;
                shown.append(part, static_cast<size_t>(count));
            }
            return shown;
        }

    private:
        int m_terminal = -1;
        pid_t m_child = -1;
    };

    /// Runs the program on a terminal, types each text when the prompt is there, and gives what the terminal shows.
    std::string RunOnTerminal(Words words, const Words& typed) {
        Terminal terminal(*this, std::move(words));
        std::string shown;
        for (const std::string& text : typed) {
            shown += terminal.ReadUntil("\n> ");
            terminal.Type(text);
        }
        return shown + terminal.ReadUntil("");
    }

private:
    static void Redirect(const std::filesystem::path& path, int flags, int to) {
        ::dup2(::open(path.c_str(), flags, 0600), to);
    }

    [[noreturn]] static void Become(Words& words) {
        ::setenv("no_proxy", "*", 1);  // whatever the machine has, requests stay on it
        std::vector<char*> argv;
        for (std::string& word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        ::execv(argv[0], argv.data());
        ::_exit(127);
    }

    TemporaryFolder m_folder;
};

}  // namespace kx::test
