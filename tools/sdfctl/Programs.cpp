// SPDX-License-Identifier: Apache-2.0
#include "tools/sdfctl/Programs.h"

#include <algorithm>
#include <optional>

#include "tools/sdfctl/CommandLine.h"
#include "tools/sdfctl/Printer.h"

namespace {

// The arguments of a program, with those that all have.
struct Declared {
    Declared(const Program& program, Settings& settings)
        : arguments(std::string("sdfctl ") + program.name, program.details, program.footer) {
        arguments.flag("--json", settings.json, "Print one JSON object a line");
        declareTimeout(arguments, settings.timeout);
        run = program.declare(arguments);
    }

    Arguments arguments;
    std::function<int(const Settings&)> run;
};

}  // namespace

const std::vector<Program>& programs() {
    static const std::vector<Program> all{
        doctorProgram(),
#ifdef LUM_SESSION
        keepProgram(),
        watchProgram(),
#endif
    };
    return all;
}

const Program* findProgram(const std::string& name) {
    const auto found = std::find_if(programs().begin(), programs().end(),
                                    [&](const Program& program) { return program.name == name; });
    return found == programs().end() ? nullptr : &*found;
}

std::vector<Arguments::Argument> argumentsOf(const Program& program) {
    Settings settings;
    return Declared(program, settings).arguments.all();
}

std::string helpOf(const Program& program) {
    Settings settings;
    return Declared(program, settings).arguments.help();
}

int runProgram(const Program& program, const std::vector<std::string>& words, Settings settings) {
    Declared declared(program, settings);
    std::optional<std::string> help;
    try {
        help = declared.arguments.parse(words);
    } catch (const UsageError& error) {
        throw UsageError(std::string(program.name) + ": " + error.what());
    }
    if (!help) return declared.run(settings);
    Printer(false).help(*help);
    return kExitSuccess;
}
