// tarnxml: the command-line face of libtarnxml.
#include <exception>
#include <iostream>
#include <new>

#include "Tool.h"

int main(int argc, char** argv) {
    std::ios::sync_with_stdio(false);
    try {
        tool::Streams io{std::cin, std::cout, std::cerr, true};
        std::vector<std::string> args(argv, argv + argc);
        int code = tool::runTool(args, io);
        std::cout.flush();
        if (!std::cout) {
            std::cerr << "tarnxml: cannot write to standard output\n";
            return tool::kExitUsage;
        }
        return code;
    } catch (const std::bad_alloc&) {
        std::cerr << "tarnxml: out of memory\n";
    } catch (const std::exception& error) {
        std::cerr << "tarnxml: " << error.what() << '\n';
    } catch (...) {
        std::cerr << "tarnxml: unexpected error\n";
    }
    return tool::kExitUsage;
}
