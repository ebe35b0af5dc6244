# What the programs beside this file share, which source it. Sets `here`, their directory.
# shellcheck shell=bash
set -euo pipefail
export LC_ALL=C
# shellcheck disable=SC2034 # for those who source it
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
# What runs the program on the hosts: words, in which a backslash keeps a blank. KESTREL_SEND is a
# program of this machine that takes the place of the last word.
KESTREL=${KESTREL:-kestrel}

# A host that is gone must become an error in finite time. That a name leads to the right host is
# known from the keys in known_hosts, so a key that is new or another is an error too.
export PARALLEL_SSH=${PARALLEL_SSH:-ssh -o BatchMode=yes -o StrictHostKeyChecking=yes \
-o ConnectTimeout=20 -o ServerAliveInterval=20}

fail() {
    echo "${0##*/}: $*" >&2
    exit 1
}

# usage <n> <arguments...>: fails with the comment at the program's head if there are fewer than n.
usage() {
    [ $# -gt "$1" ] || fail "$(sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0")"
}

# need <program>: that starts the jobs.
need() { command -v "$1" >/dev/null || fail "$1 is not installed here"; }

quote() { printf '%q ' "$@"; }

# own <host>: what the host has written, from standard input. No host can speak for another.
own() {
    LC_ALL=C awk -F '\t' -v OFS='\t' -v host="$1" \
        '$1 ~ /^(begin|lost)$/ && ($3 "") != (host "") { $3 = "for " $3; $4 = host } { print }'
}

# lost <run> <host> <what ssh says>: tells collect why there is no report.
lost() {
    local why='the connection ended'
    case $3 in
    *'ost key verification failed'*) why='its key was refused' ;;
    *'ermission denied'*) why='it refused the login' ;;
    *'imeout, server'* | *'timed out'*) why='no answer in time' ;;
    *'connect to host'* | *'resolve hostname'*) why='not reachable' ;;
    esac
    printf '\nlost\t%s\t%s\t%s\n' "$1" "$2" "$why"
}

# prepare <manifest> <installation>: copies the manifest to a new directory, `dir`, and sets what
# all reports are compared with: `run`, which no other run has, `digest` and `lines`. `program` is
# the full path of KESTREL_SEND, or "-".
prepare() {
    local path
    for path; do
        [[ $path == /* && $path != *[[:cntrl:]]* ]] || fail "not a full path: \"$path\""
    done
    dir=$(mktemp -d "${FLEET_DIR:-${TMPDIR:-/tmp}}/fleet.XXXXXX")
    trap 'rm -rf "$dir"' EXIT
    cp -- "$1" "$dir/manifest"
    digest=$(sha256sum <"$dir/manifest")
    digest=${digest%% *}
    lines=$(grep -ac '' "$dir/manifest") || fail "the manifest is empty"
    run=$(od -An -N8 -tx8 /dev/urandom)
    run=${run// /}
    program=-
    [ -n "${KESTREL_SEND-}" ] || return 0
    [[ -f $KESTREL_SEND && -x $KESTREL_SEND ]] || fail "not a program: \"$KESTREL_SEND\""
    # shellcheck disable=SC2034 # for those who source it
    program=$(realpath -s -- "$KESTREL_SEND")
}

# The plan has a line for each part of the run: its name, the number of its lines, and what kestrel
# has to be told.

# plan_ranges <n>: ranges of lines, as equal as can be, and no more than there are lines.
plan_ranges() {
    [[ $1 =~ ^[1-9][0-9]{0,5}$ ]] || fail "not a number of ranges: \"$1\""
    local n=$(($1 < lines ? $1 : lines)) i from to
    for ((i = 0; i < n; i++)); do
        from=$((i * lines / n)) to=$(((i + 1) * lines / n - 1))
        # Lines are named from 1, and given from 0. Position 0: the job finds the first one.
        printf '%d-%d\t%d\t--check=0,%d,%d\n' $((from + 1)) $((to + 1)) $((to - from + 1)) \
            "$from" "$to"
    done >"$dir/plan"
}

# plan_hosts: the hosts on standard input, one a line.
plan_hosts() {
    local host
    local -A seen=()
    while read -r host || [ -n "$host" ]; do
        [[ -n $host && $host != '#'* ]] || continue
        [[ $host =~ ^[A-Za-z0-9_][A-Za-z0-9_.:@%-]*$ ]] || fail "not the name of a host: \"$host\""
        # Whoever lists a host twice has meant another one.
        [ -z "${seen[${host,,}]-}" ] || fail "listed twice: $host"
        seen[${host,,}]=yes
        printf '%s\t%d\t-c\n' "$host" "$lines"
    done >"$dir/plan"
    [ -s "$dir/plan" ] || fail "no hosts are listed"
}
