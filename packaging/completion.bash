# Bash completion for optimize_host.

# Prints the names, then the ids, of the services in state $2 of the configuration $1, in its order.
_optimize_host_services()
{
    awk -v RS='<' -v state="$2" '
        function value(key) {
            if (!match($0, "[ \t\n]" key "=\"[^\"]*\""))
                return ""
            return substr($0, RSTART + length(key) + 3, RLENGTH - length(key) - 4)
        }
        /^!--/ { in_comment = 1 }
        !in_comment && /^info[ \t\n]/ && value("op") + 0 == state {
            name = value("name")
            if (name ~ /[^0-9]/ && name !~ /[][ \t\n\\"$`&;|<>(){}*?~#!^=\047]/)
                names = names name "\n"
            if (value("id") ~ /^[0-9]+$/)
                ids = ids value("id") "\n"
        }
        /-->/ { in_comment = 0 }
        END { printf "%s%s", names, ids }' "$1" 2>/dev/null
}

_optimize_host()
{
    local word=${COMP_WORDS[COMP_CWORD]} operation='' first='' folder='' option at
    for ((at = 1; at < COMP_CWORD; at++)); do
        option=${COMP_WORDS[at]}
        case $option in
            -m | -[jn]m | --module | -C | -[jn]C | --directory | -w | -[jn]w | --wait)
                ((at++))
                [[ ${COMP_WORDS[at]} != = ]] || ((at++)) # bash splits words at =
                [[ $option != *[Cy] ]] || folder=${COMP_WORDS[at]}
                ;;
            -C?*) folder=${option#-C} ;;
            -?*) ;;
            *)
                if [[ -z $operation ]]; then
                    operation=$option
                elif [[ -z $first ]]; then
                    first=$option
                fi
                ;;
        esac
    done
    option=${COMP_WORDS[COMP_CWORD - 1]}
    [[ $option != = ]] || option=${COMP_WORDS[COMP_CWORD - 2]}
    [[ $word != = ]] || option=${COMP_WORDS[COMP_CWORD - 1]}
    case $option in
        -m | -[jn]m | --module | -C | -[jn]C | --directory | -w | -[jn]w | --wait)
            [[ $option != *w && $option != --wait ]] || return
            compopt -o filenames
            local kind=-f
            [[ $option != *[Cy] ]] || kind=-d
            mapfile -t COMPREPLY < <(compgen $kind -- "${word#=}")
            return
            ;;
    esac
    local words='' state=''
    case $operation in
        '')
            words='attributes operations get_optimize_num get_optimize_sorce set_optimize_sorce - '
            words+='switched add_service remove_service '
            words+=$(echo {ls,optimize,restore,ignore}_{service,reg,other})
            ;;
        optimize_service) state=0 ;;
        restore_service) state=1 ;;
        ignore_*)
            case $first in
                '') words='on off' ;;
                on) state=0 ;;
                off) state=2 ;;
            esac
            [[ $operation == ignore_service ]] || state=''
            ;;
    esac
    [[ $word != -* ]] || words='--directory --module --json --dry-run --wait --no-units --full --help --version'
    [[ $word != -* || $operation != restore_service ]] || words+=' --all'
    if [[ -n $state && $word != -* ]]; then
        local candidate file=config/system_operation/conf.xml
        folder=${folder//[\"\'\\]/}
        if [[ -n $folder ]]; then
            file=${folder/#~\//$HOME/}/$file
        elif [[ ! -e $file ]]; then
            file=/var/lib/optimize_option/$file
        fi
        compopt -o nosort 2>/dev/null || : # in the order of the file; bash 4.4 has it
        # compgen -W would expand the text of the file.
        COMPREPLY=()
        while IFS= read -r candidate; do
            [[ $candidate != "$word"* ]] || COMPREPLY+=("$candidate")
        done < <(_optimize_host_services "$file" $state)
        return
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}

complete -F _optimize_host optimize_host
