# SPDX-License-Identifier: MIT
# Turns the output of --help into completions.
# awk -v program=NAME -v shell=bash|zsh|fish -f completions.awk
#
# An option is a line such as "  -h,--help   Print this help message"; the next lines continue its text.

function quoted(text)
{
    gsub(/'/, shell == "fish" ? "\\'" : "'\\''", text)
    return "'" text "'"
}

function finish(    count, i, names, name, takesFile)
{
    if (option == "")
        return
    takesFile = argument ~ /FILE/
    count = split(option, names, ",")
    for (i = 1; i <= count; i++) {
        name = names[i]
        sub(/\[=.*/, "", name)
        if (shell == "bash")
            words = words " " name
        else if (shell == "zsh") {
            gsub(/\[/, "\\[", text)
            gsub(/\]/, "\\]", text)
            specs = specs " \\\n    " quoted(name "[" text "]" \
                (argument == "" ? "" : ":" argument ":" (takesFile ? "_files" : "")))
        } else
            print "complete -c " program (name ~ /^--/ ? " -l " substr(name, 3) : " -s " substr(name, 2)) \
                (argument == "" ? "" : takesFile ? " -r -F" : " -x") " -d " quoted(text)
    }
    option = ""
}

/^  -/ {
    finish()
    option = $1
    argument = $2 ~ /^[A-Z]+$/ || $2 ~ /^ID\[/ ? $2 : ""
    text = $0
    sub(/^  [^ ]+ +/, "", text)
    if (argument != "")
        text = substr(text, length(argument) + 1)
    sub(/^ +/, "", text)
    next
}
/^                    +[^ ]/ && option != "" {
    sub(/^ +/, "")
    text = text " " $0
    next
}
{ finish() }

END {
    finish()
    if (shell == "bash")
        print "complete -o default -W " quoted(substr(words, 2)) " " program
    else if (shell == "zsh")
        print "#compdef " program "\n_arguments -s" specs " \\\n    '*:bus or file:_files'"
}
