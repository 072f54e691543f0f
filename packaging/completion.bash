# Bash completion for optimize_host.

_optimize_host()
{
    local word=${COMP_WORDS[COMP_CWORD]} operation='' at
    for ((at = 1; at < COMP_CWORD; at++)); do
        case ${COMP_WORDS[at]} in
            -m | -jm | --module)
                ((at++))
                [[ ${COMP_WORDS[at]} != = ]] || ((at++)) # bash splits words at =
                ;;
            -?*) ;;
            *) operation=${COMP_WORDS[at]} && break ;;
        esac
    done
    case ${COMP_WORDS[COMP_CWORD - 1]} in
        -m | -jm | --module | =)
            compopt -o filenames
            mapfile -t COMPREPLY < <(compgen -f -- "${word#=}")
            return
            ;;
    esac
    local words=''
    case $operation in
        '')
            words='--module --json --help --version attributes operations get_optimize_num'
            words+=' get_optimize_sorce set_optimize_sorce - '
            words+=$(echo {ls,optimize,restore,ignore}_{service,reg,other})
            ;;
        ignore_*) ((COMP_CWORD == at + 1)) && words='on off' ;;
    esac
    case $operation in
        ignore_service | optimize_service | restore_service)
            # The ids in the configuration, if its entries begin with the id as usual.
            words=${words:-$(sed -n 's/.*<info id="\([0-9]*\)".*/\1/p' \
                config/system_operation/conf.xml 2>/dev/null)}
            ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}

complete -F _optimize_host optimize_host
