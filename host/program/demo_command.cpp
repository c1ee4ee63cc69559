#include "host/program/demo_command.h"

#include <unistd.h>

#include <cerrno>

#include "host/base/console.h"
#include "host/base/descriptor.h"
#include "host/system/environment.h"

namespace Host {

int DemoCommand(const std::vector<std::string>& arguments) {
    const std::string program = DirectoryOfProgram() + "/orlim-demo";
    std::vector<char*> words{const_cast<char*>(program.c_str())};
    for (const std::string& argument : arguments) {
        words.push_back(const_cast<char*>(argument.c_str()));
    }
    words.push_back(nullptr);
    ::execv(program.c_str(), words.data());
    PrintMessage("cannot start the demonstration " + program + ": " + ErrorText(errno) +
                 ". Install orlim-demo in the same directory as orlim-agent.");
    return EXIT_FAILED;
}

}  // namespace Host
