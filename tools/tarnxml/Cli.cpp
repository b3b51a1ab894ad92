// The tarnxml command line: subcommands and options (CLI11), dispatch and error reporting.
#include <climits>
#include <cstdlib>
#include <map>
#include <memory>
#include <ostream>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include "Tool.h"

namespace tool {

namespace {

const char* const kExitCodes =
    "Exit status: 0 success; 1 nothing selected, input not well-formed or not decodable, a NUL\n"
    "byte or invalid UTF-8 given to encode/decode, or a write script error; 2 usage or I/O error\n"
    "(bad option, bad XPath, an edit refused, --max-steps reached, missing or unreadable file,\n"
    "failed write).";

const char* const kHuge = "Lift libxml2's limits (elements 256 deep, text nodes of 10 MB)";

std::string programPath(const std::string& fallback) {
    std::string path(4096, '\0');
    ssize_t length = ::readlink("/proc/self/exe", &path[0], path.size() - 1);
    if (length <= 0) {
        return fallback;
    }
    path.resize(static_cast<std::size_t>(length));
    return path;
}

bool readable(const std::string& path) {
    return ::access(path.c_str(), R_OK) == 0;
}

// The sample document: installed beside the program (PREFIX/share/tarnxml), else in the source
// tree the program was built from.
std::string findSample(const std::string& argv0) {
    std::string program = programPath(argv0);
    std::string::size_type slash = program.rfind('/');
    std::string directory = slash == std::string::npos ? std::string(".") : program.substr(0, slash);
    const std::string candidates[] = {
        directory + "/../share/tarnxml/sample.xml",
        std::string(TARNXML_SOURCE_DIR) + "/examples/sample.xml",
    };
    for (const std::string& candidate : candidates) {
        if (readable(candidate)) {
            std::unique_ptr<char, void (*)(void*)> resolved(::realpath(candidate.c_str(), nullptr), std::free);
            return resolved ? std::string(resolved.get()) : candidate;
        }
    }
    throw ToolError(kExitUsage, "cannot find sample.xml (looked in " + candidates[0] + " and " + candidates[1] +
                                    "); give one with --sample FILE");
}

} // namespace

int runTool(const std::vector<std::string>& args, Streams& io) {
    CLI::App app{"tarnxml: check, query, edit, format, stream and build XML with libtarnxml.\n"
                 "Every FILE may be - for standard input; results go to standard output.",
                 "tarnxml"};
    app.set_version_flag("--version", std::string("tarnxml ") + TARNXML_VERSION);
    app.require_subcommand(1);
    app.footer(kExitCodes);

    CheckOptions check;
    CLI::App* checkCommand = app.add_subcommand(
        "check", "Check that each FILE is well-formed (invalid UTF-8, control characters and NUL bytes are errors) "
                 "and report \"FILE: ok\" with its element count, or every error as FILE:LINE:COLUMN: message.");
    checkCommand->add_option("FILE", check.files, "Files to check (- for standard input)")->required();
    checkCommand->add_flag("--recover", check.recover, "Parse in recover mode (accept what libxml2 can mend)");
    checkCommand->add_flag("--repair", check.repair,
                           "Show what XmlDocument::Load would repair (invalid UTF-8, control characters) instead "
                           "of calling it an error");
    checkCommand->add_flag("--huge", check.huge, kHuge);

    SelectOptions select;
    CLI::App* selectCommand = app.add_subcommand(
        "select", "Print what an XPath expression selects in each FILE: elements as XML fragments (one per line), "
                  "attributes as their values, text as text, comments and PIs as markup; an expression that gives "
                  "a number, string or boolean (such as count(//a)) prints that value. With several FILEs each line "
                  "starts with FILE: (like grep). The prefixes the root element declares are bound, its default "
                  "namespace as _ (//_:item).");
    selectCommand->add_option("-x,--xpath", select.xpath, "XPath expression")->required();
    CLI::Option* textFlag = selectCommand->add_flag("--text", select.text, "Print each element's first text");
    CLI::Option* valueFlag = selectCommand->add_flag(
        "--value", select.value, "Print each node's string value (all descendant text, CDATA included)");
    CLI::Option* countFlag = selectCommand->add_flag("--count", select.count, "Print the number of nodes selected");
    CLI::Option* attrOption = selectCommand->add_option(
        "--attr", select.attribute, "Print this attribute of each element that has it (a qualified name: xml:lang)");
    textFlag->excludes(countFlag)->excludes(attrOption)->excludes(valueFlag);
    valueFlag->excludes(countFlag)->excludes(attrOption);
    countFlag->excludes(attrOption);
    selectCommand->add_option("-N", select.namespaces, "PREFIX=URI: bind a namespace prefix (repeatable)");
    selectCommand->add_option("--max-steps", select.maxSteps,
                              "Stop an XPath evaluation after this many steps (default 1000000000; 0: no limit)");
    selectCommand->add_flag("--huge", select.huge, kHuge);
    selectCommand->add_option("FILE", select.files, "Inputs (default: standard input)");

    EditOptions edit;
    std::vector<std::string> editValues[kEditActionKinds];
    int deleteCount = 0;
    CLI::App* editCommand = app.add_subcommand(
        "edit", "Apply actions, in command-line order, to the nodes selected by the -x before them; print the "
                "document (or replace FILE with --in-place). Nothing is written when a name, value or expression "
                "is refused. Example: edit -x '//item[@id=\"3\"]' --set-attr state=done --append note=checked "
                "-x //draft --delete list.xml");
    CLI::Option* editOptions[kEditActionKinds] = {
        editCommand->add_option("-x,--xpath", editValues[EditAction::kSelect],
                                "Select nodes for the actions that follow (repeatable); must give a node set"),
        editCommand->add_option("--set-text", editValues[EditAction::kSetText],
                                "Replace the whole content of each element (or the value of an attribute or text)"),
        editCommand->add_option("--set-attr", editValues[EditAction::kSetAttr], "NAME=VALUE: set an attribute"),
        editCommand->add_option("--del-attr", editValues[EditAction::kDelAttr], "NAME: remove an attribute"),
        editCommand->add_flag("--delete", deleteCount, "Remove the nodes (and everything inside them)"),
        editCommand->add_option("--append", editValues[EditAction::kAppend],
                                "NAME=VALUE: append a child element with that text"),
        editCommand->add_option("--rename", editValues[EditAction::kRename], "NAME: rename each element"),
        editCommand->add_option("--insert-before", editValues[EditAction::kInsertBefore],
                                "NAME=VALUE: insert an element with that text before each element"),
        editCommand->add_option("--insert-after", editValues[EditAction::kInsertAfter],
                                "NAME=VALUE: insert an element with that text after each element"),
    };
    for (CLI::Option* option : editOptions) {
        option->allow_extra_args(false);
    }
    editCommand->add_flag("--in-place", edit.inPlace,
                          "Replace FILE (through a temporary file renamed over it; a failure leaves it untouched; "
                          "a symbolic link stays and its target is replaced)");
    editCommand->add_option("-N", edit.namespaces, "PREFIX=URI: bind a namespace prefix (repeatable)");
    editCommand->add_option("--max-steps", edit.maxSteps,
                            "Stop an XPath evaluation after this many steps (default 1000000000; 0: no limit)");
    editCommand->add_flag("--huge", edit.huge, kHuge);
    editCommand->add_option("FILE", edit.file, "Input (default: standard input)");

    FormatOptions format;
    CLI::App* formatCommand = app.add_subcommand(
        "format", "Print the whole document (declaration, DOCTYPE, comments and PIs outside the root, entity "
                  "references) as xmllint --format does, in the document's own encoding; the content never changes.");
    formatCommand->add_option("--indent", format.indent, "One level of indentation: spaces and tabs, at most 60 (default two spaces, as xmllint --format)");
    formatCommand->add_flag("--raw", format.raw, "Print the document as it is, like xmllint without --format");
    formatCommand->add_flag("--huge", format.huge, kHuge);
    formatCommand->add_option("FILE", format.file, "Input (default: standard input)");

    StreamOptions stream;
    CLI::App* streamCommand = app.add_subcommand(
        "stream", "Walk the document with XmlReader, one line per node: DEPTH TYPE NAME [\"VALUE\"], "
                  "attributes on lines of their own, \"empty\" after empty elements; values escaped (\\n, \\t, "
                  "\\\", \\\\, \\xHH). The input is read incrementally in constant memory; no tree is built.");
    streamCommand->add_flag("--skip-blanks", stream.skipBlanks, "Leave out whitespace-only text nodes");
    streamCommand->add_flag("--huge", stream.huge, kHuge);
    streamCommand->add_option("FILE", stream.file, "Input (default: standard input)");

    std::string encodeFile = "-";
    CLI::App* encodeCommand = app.add_subcommand(
        "encode", "Escape text for XML (XmlHelper::XmlEncode): & < > ' \" as entities, everything outside "
                  "printable ASCII (line feeds included) as &#xHEX;. Invalid UTF-8: message and exit 1. "
                  "Use printf '%s' rather than echo to leave out the final line feed.");
    encodeCommand->add_option("FILE", encodeFile, "Input (default: standard input)");

    std::string decodeFile = "-";
    CLI::App* decodeCommand = app.add_subcommand(
        "decode", "Resolve the five entities and numeric character references (XmlHelper::XmlDecode).");
    decodeCommand->add_option("FILE", decodeFile, "Input (default: standard input)");

    WriteOptions write;
    CLI::App* writeCommand = app.add_subcommand(
        "write", "Build a document with XmlWriter from a script, one instruction per line:\n"
                 "  declaration [VERSION [ENCODING [STANDALONE]]]\n"
                 "  start NAME | attr NAME VALUE | text T | element NAME VALUE | cdata T | comment T | end\n"
                 "Values run to the end of the line; \\n, \\t and \\\\ stand for line feed, tab and backslash; "
                 "blank lines and lines starting with # are skipped. Unclosed elements are closed at the end.");
    CLI::Option* writeIndent =
        writeCommand->add_option("--indent", write.indent, "Print formatted, indenting with this string");
    writeCommand->add_option("FILE", write.file, "Script (default: standard input)");

    std::string sample;
    CLI::App* demoCommand = app.add_subcommand("demo", "A guided tour of every subcommand on examples/sample.xml.");
    demoCommand->add_option("--sample", sample, "Use this document instead of the shipped sample");

    for (CLI::App* command : app.get_subcommands({})) {
        command->footer(kExitCodes);
    }

    // CLI11 would call an unknown word a missing subcommand; name it instead.
    if (args.size() > 1 && !args[1].empty() && args[1][0] != '-') {
        bool known = false;
        for (const CLI::App* command : app.get_subcommands({})) {
            known = known || command->get_name() == args[1];
        }
        if (!known) {
            io.err << "tarnxml: unknown subcommand '" << args[1] << "'\nRun with --help for more information.\n";
            return kExitUsage;
        }
    }

    std::vector<const char*> argv;
    for (const std::string& arg : args) {
        argv.push_back(arg.c_str());
    }
    try {
        app.parse(static_cast<int>(argv.size()), argv.data());
    } catch (const CLI::ParseError& error) {
        int code = app.exit(error, io.out, io.err);
        return code == 0 ? kExitOk : kExitUsage;
    }

    const std::string name = app.get_subcommands().empty() ? "" : app.get_subcommands().front()->get_name();
    try {
        if (name == "check") {
            return runCheck(check, io);
        }
        if (name == "select") {
            return runSelect(select, io);
        }
        if (name == "edit") {
            // The actions in the order they were given: each occurrence of an option is one entry
            // of parse_order(), and each option's values come in that same order.
            std::map<const CLI::Option*, std::size_t> used;
            for (const CLI::Option* option : editCommand->parse_order()) {
                for (int kind = 0; kind < kEditActionKinds; ++kind) {
                    if (option == editOptions[kind]) {
                        std::size_t index = used[option]++;
                        std::string argument =
                            kind == EditAction::kDelete ? std::string() : editValues[kind].at(index);
                        edit.actions.push_back({static_cast<EditAction::Kind>(kind), argument});
                    }
                }
            }
            return runEdit(edit, io);
        }
        if (name == "format") {
            return runFormat(format, io);
        }
        if (name == "stream") {
            return runStream(stream, io);
        }
        if (name == "encode") {
            return runEncode(encodeFile, io);
        }
        if (name == "decode") {
            return runDecode(decodeFile, io);
        }
        if (name == "write") {
            write.indentSet = writeIndent->count() > 0;
            return runWrite(write, io);
        }
        if (name == "demo") {
            return runDemo(sample.empty() ? findSample(args.empty() ? "tarnxml" : args[0]) : sample, io);
        }
    } catch (const ToolError& error) {
        io.out.flush();
        io.err << "tarnxml " << name << ": " << error.what() << '\n';
        return error.code();
    }
    io.err << "tarnxml: no subcommand given\n";
    return kExitUsage;
}

} // namespace tool
