# shellcheck shell=bash
# Completion for bash. Source it, or copy it as "kestrel" to where your bash looks for completions,
# for instance ~/.local/share/bash-completion/completions.

# Bash splits words at "=" and "@", which then are words of their own.
_kestrel() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    [[ $word != [=@] ]] || { before=$word$before && word=''; }
    [[ $before != = ]] || before+=${COMP_WORDS[COMP_CWORD - 2]}
    case $before in
    # Left to bash's own completion of files, which knows about quotes.
    =--instdir) compopt -o dirnames +o default ;;
    =--manifest | =--report) ;;
    =--zvdebug)
        local items=${word%"${word##*,}"}
        compopt -o nospace +o default
        mapfile -t COMPREPLY < <(compgen -P "$items" -W 'on out: default num: alerts adt sdb dwarf
            assert: zip debug:' -- "${word##*,}")
        ;;
    =*) compopt +o default ;;
    @*)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -P @ -- "$word")
        ;;
    *)
        mapfile -t COMPREPLY < <(compgen -W '-g -c -v -h --help --version --instdir= --manifest=
            --tasks= --report --report= --extra --exclude= --sort --zvdebug=' -- "$word")
        [[ ${COMPREPLY-} != *= ]] || compopt -o nospace
        ;;
    esac
}
complete -o default -F _kestrel kestrel
