// `zelhost completion`: what a shell reads to complete the command line, made from the parser's own tree.
#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/commands/commands.h"
#include "host/lib/cli_completion.h"
#include "host/lib/files.h"

namespace zelhost {

// The commands behind this one join the tree later: the script is made when the action runs.
Action prepare_completion(CLI::App& app) {
    const auto shell = std::make_shared<Shell>();
    app.footer(R"(To keep it:
  bash  zelhost completion bash >~/.local/share/bash-completion/completions/zelhost
  zsh   zelhost completion zsh >_zelhost, in a folder of $fpath
  fish  zelhost completion fish >~/.config/fish/completions/zelhost.fish)");
    app.add_option("SHELL", *shell, "bash, zsh or fish")
        ->required()
        ->transform(CLI::CheckedTransformer(std::vector<std::pair<std::string, Shell>>{
            {"bash", Shell::bash}, {"zsh", Shell::zsh}, {"fish", Shell::fish}}));
    return [&app, shell] {
        print(completion_script(*app.get_parent(), *shell));
        return kDone;
    };
}

}  // namespace zelhost
