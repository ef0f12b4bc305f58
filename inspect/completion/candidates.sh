# What can be typed is read from the program's own help, so it is what that program knows.

# Adds what the text of a help says to the local variables of _zfsinspect_candidates. In options, each
# name stands with what it takes: "--replay=FILE".
_zfsinspect_read_help() {
    local line section names value
    while IFS= read -r line; do
        case $line in
        [A-Z]*:) section=$line ;;
        '  -'*)
            line=${line#  }
            names=${line%% *}
            value=${line#"$names"}
            value=${value# }
            value=${value%% *}
            case $value in Excludes:* | Needs:* | REQUIRED) value= ;; esac
            case $names in -?,*) options="$options${names%%,*}=$value$newline" names=${names#*,} ;; esac
            options="$options$names=$value$newline"
            ;;
        '  '[!\ ]*)
            line=${line#  }
            case $section in
            Commands:) commands="$commands${line%% *}$newline" ;;
            Positionals:) operands="$operands${line%% *}$newline" ;;
            esac
            ;;
        esac
    done
}

# _zfsinspect_candidates PROGRAM WORD...: what the last word can become, one a line; "/" for a file.
_zfsinspect_candidates() {
    local newline='
'
    local options="$newline" commands="$newline" operands="$newline"
    local program=$1 word value command= rest
    shift
    _zfsinspect_read_help <<HELP
$("$program" --help 2>/dev/null)
HELP
    while [ $# -gt 1 ]; do
        word=$1
        shift
        rest=${options#*"$newline$word="}
        value=
        if [ "$rest" != "$options" ]; then
            value=${rest%%"$newline"*}
            if [ -n "$value" ] && [ $# -gt 1 ]; then # its value is whole already
                shift
                value=
            fi
        elif [ -z "$command" ]; then
            case $commands in *"$newline$word$newline"*)
                command=$word
                _zfsinspect_read_help <<HELP
$("$program" "$command" --help 2>/dev/null)
HELP
                ;;
            esac
        fi
    done

    case $value in
    FILE* | PATH* | DIRECTORY*) echo / ;;
    *'{'*'}'*) # "TYPE,...:{filesystem,snapshot}": further ones behind a comma
        rest=${value#*\{}
        rest=${rest%%\}*},
        while [ -n "$rest" ]; do
            case $1 in
            *,*) echo "${1%,*},${rest%%,*}" ;;
            *) echo "${rest%%,*}" ;;
            esac
            rest=${rest#*,}
        done
        ;;
    ?*) ;;
    *)
        case $1 in
        -*)
            while [ "$options" != "$newline" ]; do
                options=${options#"$newline"}
                echo "${options%%=*}"
                options=$newline${options#*"$newline"}
            done
            ;;
        *)
            if [ -z "$command" ]; then
                echo "${commands#"$newline"}"
            else
                case $operands in *"${newline}PATH$newline"* | *"${newline}FILE$newline"*) echo / ;; esac
            fi
            ;;
        esac
        ;;
    esac
}
