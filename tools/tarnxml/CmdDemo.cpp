// tarnxml demo: a guided tour of the subcommands on the shipped sample document. Every step
// prints the command line it runs, then what that command prints.
#include <ostream>
#include <sstream>

#include <unistd.h>

#include "Tool.h"

namespace tool {

namespace {

std::string shellQuote(const std::string& word) {
    bool plain = !word.empty();
    for (char c : word) {
        bool safe = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    std::string("_-./:=,+@").find(c) != std::string::npos;
        plain = plain && safe;
    }
    if (plain) {
        return word;
    }
    std::string quoted = "'";
    for (char c : word) {
        quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    }
    return quoted + "'";
}

// The sample's path as a user in the current directory would type it.
std::string shownPath(const std::string& path) {
    std::string cwd(4096, '\0');
    if (::getcwd(&cwd[0], cwd.size()) == nullptr) {
        return path;
    }
    cwd.resize(cwd.find('\0'));
    return path.compare(0, cwd.size() + 1, cwd + "/") == 0 ? path.substr(cwd.size() + 1) : path;
}

class Tour {
public:
    Tour(std::string sample, Streams& io) : sample_(std::move(sample)), shown_(shownPath(sample_)), io_(io) {}

    // Runs `tarnxml ARGS` (the sample's path where FILE stands) with `input` on standard input
    // and shows at most `maxLines` lines of its output.
    int step(const std::string& title, std::vector<std::string> args, std::size_t maxLines = 12,
             const std::string& input = std::string(), const std::string& inputShown = std::string()) {
        io_.out << "\n== " << title << "\n$ ";
        if (!inputShown.empty()) {
            io_.out << "printf " << shellQuote(inputShown) << " | ";
        }
        io_.out << "tarnxml";
        std::vector<std::string> argv{"tarnxml"};
        for (std::string& arg : args) {
            io_.out << ' ' << shellQuote(arg == "FILE" ? shown_ : arg);
            argv.push_back(arg == "FILE" ? shown_ : arg);
        }
        io_.out << '\n';
        std::istringstream in(input);
        std::ostringstream out;
        std::ostringstream err;
        Streams captured{in, out, err, false};
        int code = runTool(argv, captured);
        show(out.str(), maxLines);
        show(err.str(), maxLines);
        if (code != kExitOk) {
            io_.out << "(exit status " << code << ")\n";
        }
        return code;
    }

private:
    void show(const std::string& text, std::size_t maxLines) {
        std::istringstream lines(text);
        std::string line;
        std::size_t count = 0;
        std::size_t total = 0;
        while (std::getline(lines, line)) {
            if (++total <= maxLines) {
                io_.out << line << '\n';
                ++count;
            }
        }
        if (total > count) {
            io_.out << "... (" << (total - count) << " more lines)\n";
        }
    }

    std::string sample_;
    std::string shown_;
    Streams& io_;
};

} // namespace

int runDemo(const std::string& samplePath, Streams& io) {
    readInput(samplePath, io);  // a clear message now if the sample cannot be read
    Tour tour(samplePath, io);
    io.out << "tarnxml guided tour on " << shownPath(samplePath)
           << ": each step shows a command and what it prints.\n";
    int failures = 0;
    auto expect = [&failures](int got, int wanted) { failures += got == wanted ? 0 : 1; };

    expect(tour.step("Is it well-formed? (exit status 0 when every file parses)", {"check", "FILE"}), kExitOk);
    expect(tour.step("A malformed document names line and column (exit status 1)", {"check", "-"}, 12,
                     "<studio>\n  <device id=\"x\">\n</studio>\n", "<studio>\\n  <device id=\"x\">\\n</studio>\\n"),
           kExitNotFound);
    expect(tour.step("How many devices?", {"select", "--count", "-x", "//device", "FILE"}), kExitOk);
    expect(tour.step("The ids of the cameras", {"select", "--attr", "id", "-x", "//device[@type='camera']", "FILE"}),
           kExitOk);
    expect(tour.step("Every device label (non-ASCII text passes through as UTF-8)",
                     {"select", "--text", "-x", "//device/label", "FILE"}),
           kExitOk);
    expect(tour.step("One element as XML", {"select", "-x", "//device[@id='mix-1']", "FILE"}), kExitOk);
    expect(tour.step("An expression that is not a node set prints its value",
                     {"select", "-x", "sum(//setting[@name='inputs'])", "FILE"}),
           kExitOk);
    expect(tour.step("Nothing selected: no output, exit status 1 (as grep)", {"select", "-x", "//printer", "FILE"}),
           kExitNotFound);
    expect(tour.step("A broken XPath is reported with the expression (exit status 2)",
                     {"select", "-x", "//device[@id=", "FILE"}),
           kExitUsage);
    expect(tour.step("Edit: enable the spare camera, note it, drop the schedule (add --in-place to change the file)",
                     {"edit", "-x", "//device[@id='cam-2']", "--set-attr", "enabled=true", "--append",
                      "note=back in service", "-x", "//schedule", "--delete", "FILE"},
                     40),
           kExitOk);
    expect(tour.step("Print it as xmllint --format does, prolog included", {"format", "FILE"}, 10), kExitOk);
    expect(tour.step("Stream it node by node, without building a tree", {"stream", "--skip-blanks", "FILE"}, 14),
           kExitOk);
    const std::string script = "declaration\nstart order\nattr id 42\nelement item Käse & Brot\n"
                               "start note\ntext bitte <schnell>\nend\ncomment made by tarnxml write\n";
    expect(tour.step("Build XML from a shell script with write", {"write", "--indent", "  "}, 12, script,
                     "declaration\\nstart order\\nattr id 42\\nelement item Käse & Brot\\nstart note\\n"
                     "text bitte <schnell>\\nend\\ncomment made by tarnxml write\\n"),
           kExitOk);
    expect(tour.step("Escape text for XML", {"encode"}, 12, "Größe < 10 & \"laut\"", "Größe < 10 & \"laut\""),
           kExitOk);
    expect(tour.step("And back", {"decode"}, 12, "Gr&#xF6;&#xDF;e &lt; 10 &amp; &quot;laut&quot;",
                     "Gr&#xF6;&#xDF;e &lt; 10 &amp; &quot;laut&quot;"),
           kExitOk);
    io.out << "\nMore: tarnxml --help, tarnxml SUBCOMMAND --help.\n";
    if (failures != 0) {
        io.err << "tarnxml demo: " << failures << " step(s) did not end as expected\n";
        return kExitUsage;
    }
    return kExitOk;
}

} // namespace tool
