# How a demonstration tells its story.

say() { printf '\n%s\n' "$*"; }

show() { # shows a command as one would type it, and runs it
    local word line=
    for word in "$@"; do
        case $word in *' '*) word="'$word'" ;; esac
        line+=" $word"
    done
    printf '$%s\n' "$line"
    "$@"
}

checked() { printf '    checked: %s\n' "$*"; }
