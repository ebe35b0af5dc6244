#!/bin/sh
# Tests the platform layer from a shell, which can start programs, take rights from them and make
# their system calls fail in ways that a test program cannot. Lists the cases with other results
# than expected, and fails if there are any. Parts that are not possible on this machine or for this
# user are named and skipped.
#
#   osdep_process_test.sh <directory of the programs>
#
# The programs' paths are without spaces, some variables hold several words, and the lines of
# `expect` call functions and use variables:
# shellcheck disable=SC2086,SC2317,SC2034
child=$1/child kestrel=$1/kestrel
nobody=
[ "$(id -u)" != 0 ] || nobody='setpriv --reuid=65534 --regid=65534 --clear-groups'
fail='strace -f -o /dev/null -e' # fail inject=<call>:error=<errno>
export ASAN_OPTIONS=detect_leaks=0 # does not work under strace
place=$(mktemp -d) || exit
trap 'rm -rf "$place"' EXIT
chmod 711 "$place"
status=0

# can <command...>: whether the next part is possible.
can() {
    mkdir -m 777 "$place/work" && cd "$place/work" || exit
    printf old >to && echo new >from
    "$@" >/dev/null 2>&1
    possible=$?
    [ $possible = 0 ] || echo "passed over: $*"
    cd "$place" && chmod -R u+rwx work && rm -rf work && return $possible
}

# expect <printed>: runs the lines on standard input. They find "from", "to" and "dir/to", which
# anybody may write.
expect() {
    mkdir -m 777 "$place/work" && cd "$place/work" && mkdir -m 777 dir || exit
    printf old >to && printf new >from && cp to dir/to && chmod 666 to dir/to
    lines=$(cat)
    printed=$(eval "$lines" 2>&1)
    if [ "$printed" != "$1" ]; then
        printf '%s\n  gave "%s"\n  and not "%s"\n' "$lines" "$printed" "$1"
        status=1
    fi
    cd "$place" && chmod -R u+rwx work && rm -rf work
}

# follow <options of strace, program...>: runs the program under strace and calls `at` for each line
# of the trace, with its process in $pid, that of the program in $first, and the rest in $line. With
# "inject=<call>:signal=STOP" processes are held after the call until `at` resumes them. Ends when
# all processes have ended.
follow() {
    mkfifo trace
    timeout -k 1 60 strace -f -o trace "$@" >out 2>&1 &
    first=
    while read -r pid line; do
        first=${first:-$pid}
        at
    done <trace
    wait
}

# resume <process...>: they may have ended.
resume() { kill -CONT "$@" 2>/dev/null || :; }

# --- Programs that are started

can env --ignore-signal=CHLD true && expect 5 <<'-'
env --ignore-signal=CHLD $child --spawn --exit 5 || echo $?
-
expect 3 <<'-'
$child --opened new <&- >&- 3>&- || echo $?
-

# --- Signals

# Whether it ends, with which status, what stays behind, and whether it prints a text.
expect '2 caught 0
2 caught 0
3 caught 0
15 caught 0
11 caught 1
11 caught 1
0 caught 0' <<'-'
rm dir/to
for how in '2 hang' '2 again' 3 '15 fault' '11 fault' '11 overflow' '15 ignored'; do
    $child --die "$PWD/dir" $how >out 2>&1
    echo $? $(ls dir) $(grep -c Norvane out)
done
-

# --- Writes that fail

expect 3 <<'-'
{ $child --catch --write || echo $? >&2; } | true
-
expect 3 <<'-'
trap '' PIPE
{ $child --catch --spawn --write || echo $? >&2; } | true
-
can env --default-signal=PIPE true && expect 141 <<'-'
{ env --default-signal=PIPE $child --catch --spawn --write || echo $? >&2; } | true
-
expect '0 27
olddir from to' <<'-'
head -c 2000000 /dev/zero >from
(ulimit -f 2000; $child --catch --copy from to)
cat to; echo *
-

# --- Copies: the reasons for failure, before and after

expect '21 21
2 2
20 20
2 2
40 40
0 28
0 0
dir from loop to' <<'-'
ln -s loop loop
for to in dir gone/to to/x '' loop /dev/full /dev/null; do $child --copy from "$to"; done
echo *
-
expect '0 0
-rw----r-x
0 0
from to' <<'-'
chmod 605 to
$child --copy from to; ls -l to | cut -c 1-10
cd dir; cp ../from .; $child --copy from from; echo *
-
can setpriv --reuid=1 --clear-groups true && expect '7:8 640
1:8 640
1:1 604' <<'-'
chmod 777 .
# copied <user> <groups>: the owner and the rights of a file in whose place that user has written
copied() {
    setpriv --reuid=$1 --regid=$1 $2 $child --copy from to >out
    stat -c '%u:%g %a' to
}
chown 7:8 to; chmod 640 to; copied 0 --keep-groups
rm to; echo >to; chown 1:8 to; chmod 640 to; copied 1 --groups=8
rm to; echo >to; chown 1:8 to; chmod 604 to; copied 1 --clear-groups
-
if can $nobody $child --exit 0; then
    # A new file is possible neither beside it nor in its place.
    expect '0 0
0 0
new13 13
to' <<'-'
chmod 555 dir
$nobody $child --copy from dir/to; $nobody $child --copy dir/to dir/to; cat dir/to
$nobody $child --copy from dir/new; ls dir
-
    # In a sticky directory the owner's file cannot be replaced by renaming.
    expect '0 0
newto' <<'-'
chmod 1777 dir
$nobody $child --copy from dir/to; cat dir/to; ls dir
-
    expect '13 13
old' <<'-'
chmod 444 dir/to
$nobody $child --copy from dir/to; cat dir/to
-
fi
can unshare -m mount --bind from to && expect '0 0
newold' <<'-'
unshare -m sh -c "mount --bind dir/to to && $child --copy from to"
cat dir/to to
-

# --- The disk fails, or is full

can unshare -m mount -t tmpfs none . && expect '0 28
old' <<'-'
unshare -m sh -c "mount -t tmpfs -o nr_inodes=2 none dir && printf old >dir/to &&
    $child --copy from dir/to; cat dir/to"
-
if can $fail trace=none true; then
    expect '0 5
olddir from to' <<'-'
$fail inject=fsync:error=EIO:when=1 $child --copy from to
cat to; echo *
-
    expect '0 5
new' <<'-'
$fail inject=fsync:error=EROFS:when=2 $child --copy from to
cat to
-
    expect '0 0
new' <<'-'
$fail inject=fsync:error=EINVAL $child --copy from to
cat to
-
    expect '0 5
olddir from to' <<'-'
$fail 'inject=/^rename:error=EIO' $child --copy from to
cat to; echo *
-
    expect '0 0
newdir from to' <<'-'
$fail 'inject=/^rename:error=EBUSY' $child --copy from to
cat to; echo *
-
    # Without the lock, or the source's beginning, nothing is written over the old file; nothing at
    # all is an empty file.
    expect '0 37
old
0 29
old
0 0
0' <<'-'
in_place='inject=/^rename:error=EBUSY'
$fail $in_place -e inject=fcntl:error=ENOLCK $child --copy from to; cat to; echo
$fail $in_place -e inject=lseek:error=ESPIPE:when=1 $child --copy from to; cat to; echo
: >from; $fail $in_place $child --copy from to; stat -c %s to
-
    # A longer old file leaves nothing.
    expect '0 0
new' <<'-'
printf older >to
$fail 'inject=/^rename:error=EBUSY' $child --copy from to; cat to
-
    # What was written over is looked at before the first character.
    for spoil in ': >to' 'truncate -s 2 to' 'printf x | dd of=to conv=notrunc status=none'; do
        export spoil
        expect '0 16
spoilt' <<'-'
at() {
    case $line in
    '--- stopped'*) [ "$held" ] && eval "$spoil"; held=1; resume $pid ;;
    esac
}
follow -e 'inject=/^rename:error=EBUSY' -e inject=fsync:signal=STOP $child --copy from to
cat out; grep -q new to || echo spoilt
-
    done
    # A file that cannot be removed is named.
    expect 'Cannot remove file "zv.tmp": Operation not permitted
0 0
new' <<'-'
$fail 'inject=/^(rename|unlink):error=EPERM' $child --copy from to 2>&1 | sed 's/zv.*tmp/zv.tmp/'
cat to
-
    # What is written over the old file is not text until it is complete.
    for flush in 2 3; do
        export flush
        expect "0 5
$([ $flush = 2 ] && echo 0ew || echo new)" <<'-'
$fail 'inject=/^rename:error=EBUSY' -e inject=fsync:error=EIO:when=$flush $child --copy from to
tr '\0' 0 <to
-
    done
    expect '0 30
old' <<'-'
$fail inject=fsync:error=EROFS:when=1 $child --copy from to
cat to
-
    # Where the system cannot rename to a free name in one step.
    for error in EINVAL ENOSYS EACCES; do
        export error
        expect "$([ $error = EACCES ] && echo 13 'dir from to' || echo 0 'dir from there')" <<'-'
$fail inject=renameat2:error=$error $child --rename to there; echo $? *
-
    done
    # The state of the root directory cannot be read.
    expect 1 <<'-'
$fail 'inject=/stat:error=EIO' -P / -P /gone $child --mkdir /gone || echo $?
-
fi

# A directory below the top cannot be read, for a reason other than rights.
for call in openat:error=EIO openat:error=EMFILE openat:error=ENOENT getdents64:error=EIO \
    getdents64:error=ENOENT getdents64:error=ESTALE; do
    export call
    can $fail trace=none true && expect "Cannot read directory \"./sub\"
There was a problem generating the manifest file
old" <<'-'
mkdir -p tree/sub && printf old >m
$fail inject=$call -P ./sub -P "$PWD/tree/sub" $kestrel -g --manifest=m --instdir=tree 2>&1 >out
cat m
-
    can $fail trace=none true && expect "$(printf 'error\t0\tCannot read directory "./sub"')
Verification failed" <<'-'
mkdir -p tree/sub && : >tree/sub/unseen && echo >tree/1
$kestrel -g --manifest=m --instdir=tree >out && rm tree/sub/unseen && sed -i /unseen/d m
$fail inject=$call -P ./sub -P "$PWD/tree/sub" \
    $kestrel -c --extra --report --tasks=1 --manifest=m --instdir=tree |
    sed -n '/Cannot/s/: .*//p; /Ver/p'
-
done

# Files may look alike to who compares their identities: these are the bytes of all of them.
zeros=00000000000000000000000000000000 sevens=07000000000000000700000000000000
alike="inject=newfstatat:poke_exit=@arg3="

# A link is set anew while a file is hashed, or while the manifest is on its way to the disk.
for run in 'preadv2 -c' 'preadv2 -g' 'fsync -g'; do
    for identity in trace=none "$alike$zeros" "$alike$sevens"; do
        export run identity
        can $fail "$identity" $kestrel -h && expect 1 <<'-'
mkdir A B && for i in 1 2 3; do echo $i >A/$i && echo $i >B/$i; done
$kestrel -g --manifest=m --instdir=A >out && ln -s A cur && ln -s B next
at() {
    case $line in
    '--- stopped'*) [ "$held" ] || mv -T next cur; held=1; resume $pid ;;
    '+++'*) [ "${line##* with 1 *}" ] || echo 1 ;;
    esac
}
[ $identity != trace=none ] || identity=
follow ${identity:+-e $identity} -e inject=${run% *}:signal=STOP \
    $kestrel ${run#* } --tasks=1 --manifest=m --instdir="$PWD/cur"
-
    done
done
alike="$fail $alike$zeros"
can $alike $kestrel -h && expect 'Manifest file successfully created
4
Manifest file successfully created
4' <<'-'
mkdir -p tree/sub/in temp && echo >tree/sub/1 && echo >tree/sub/in/2 && ln -s sub tree/link
for dir in tree/sub/in tree/sub tree; do
    until touch $dir && now=$(stat -c %z $dir) && [ "$now" != "$last" ]; do :; done
    last=$now
done
export TEMP="$PWD/temp"
for old in old ''; do
    printf "$old" >m
    printf '%s\n' -g --manifest=m >inner && echo @inner >outer
    $alike $kestrel @outer --tasks=1 --instdir=tree | grep -v '"'
    echo $(grep -c . m)
done
-

# --- Temporaries

# Wherever a signal strikes.
if can $fail trace=none true; then
    for call in mkdir unlink rmdir; do
        export call
        expect '15
dir from out to' <<'-'
TEMP=$PWD/dir
export TEMP
rm dir/to
$fail "inject=/^$call:signal=TERM:when=1" $child --catch --temps >out || echo $?
echo * && rmdir dir
-
    done
fi
expect 'drwx------
dir/kestrel_tmp_0.out
dir/kestrel_tmp_1.out
dir/kestrel_tmp_2
dir/kestrel_tmp_3.
dir/kestrel_tmp_4/inner
registered.txt' <<'-'
umask 0
TEMP=$PWD $child --temps keep >/dev/null
mv zv* dir/zv
ls -ld dir/zv | cut -c 1-10
mv dir/zv/* dir; rm dir/to; find dir reg* -type f | sort
-
expect '1
1
5' <<'-'
for no in "$PWD/to" /proc; do TEMP=$no $child --temps || echo $?; done
TEMP=$PWD/to $child --temps "$PWD" | grep -c "^$PWD/zvA"
-
# The directories cannot be listed, so their contents are unknown.
can $nobody $child --exit 0 && expect 'a
to
empty' <<'-'
mkdir dir/a empty
chmod 333 dir empty
$nobody $child --rmtree dir && $nobody $child --rmtree empty && chmod 755 dir
ls dir && ls -d empty
-

# --- Packages

# What a user may not write to: each step fails, and is warned about.
can $nobody $child --exit 0 &&
    expect 'ZVDEBUG (warning): Unable to add archive "go" (from "go") to package zip (p)
ZVDEBUG (warning): Unable to covert package zip file (p) reader to a writer to append "go"
ZVDEBUG (warning): Unable to end package zip (p) after adding "go"
ZVDEBUG (warning): Unable to finalize package zip (p) after adding "go"
same' <<'-'
echo >go && $child --log zip:+p && cp p old && chmod 644 p
$nobody $child --log zip:+p 2>&1 | LC_ALL=C sort -u
cmp p old && echo same
-

# --- The tool

# A name that leads to a correct manifest only while tasks are being started.
can $fail trace=none true && expect 'Verification failed' <<'-'
mkdir tree && for i in 1 2 3 4 5 6; do echo $i >tree/$i; done
$kestrel -g --manifest=bad --instdir=tree >out && echo changed >tree/6
$kestrel -g --manifest=sound --instdir=tree >out && ln -s bad m
flip() { ln -s $1 n && mv -T n m; }
# A task is held when it is about to run, and the parent when each task has ended.
at() {
    case $line in
    '--- stopped'*)
        [ $pid = $first ] || { [ "$started" ] || flip sound; started=1; }
        [ $pid != $first ] || [ $((stops += 1)) != 3 ] || flip bad
        resume $pid ;;
    esac
}
follow -e inject=execve,waitid:signal=STOP $kestrel -c --manifest=m --instdir=tree --tasks=2
grep -v '"' out
-
# It gets shorter while its lines are looked for.
can $fail trace=none true && expect 'error	0	Could not read manifest file' <<'-'
mkdir tree && for i in 1 2 3 4 5 6; do echo $i >tree/$i; done
$kestrel -g --manifest=m --instdir=tree >out
$fail inject=read:retval=0:when=4 -P "$PWD/m" \
    $kestrel -c --report --manifest=m --instdir=tree --tasks=2 | grep error
-
# A file system may report only on closing that there is no room, or report an error only once.
can $fail trace=none true && expect 'Cannot write to standard output: Disk quota exceeded
1
Cannot write to standard output: Input/output error
1' <<'-'
mkdir tree && echo >tree/1 && $kestrel -g --manifest=m --instdir=tree >out
for call in close:error=EDQUOT write:error=EIO; do
    $fail inject=$call:when=1 -P "$PWD/out" \
        $kestrel -c --tasks=1 --manifest=m --instdir=tree >out || echo $?
done
-
# A task whose parent has ended before it could be tied to it does nothing.
can $fail trace=none true && expect 1 <<'-'
mkdir tree && for i in 1 2 3; do echo $i >tree/$i; done
$kestrel -g --manifest=m --instdir=tree >out
at() {
    case $line in
    '--- stopped'*) [ $pid = $first ] && resume $pid || { task=$pid; kill -9 $first; } ;;
    '+++ killed'*) [ $pid != $first ] || resume $task ;;
    execve*) ran=$((ran + 1)) ;;
    esac
}
follow -e inject=rt_sigaction:signal=STOP:when=1 $kestrel -c --manifest=m --instdir=tree --tasks=2
echo $ran
-
# A task ends with its parent, also where that is forgotten when it begins to run.
for how in '-e inject=prctl:error=EPERM:when=1' capable; do
    export how
    can $fail trace=none $nobody true && can setcap cap_dac_read_search+ep to && expect 3 <<'-'
mkdir tree && for i in 1 2 3; do echo $i >tree/$i; done
chmod 755 . && $kestrel -g --manifest=m --instdir=tree >out && cp $kestrel .
at() {
    case $line in
    '--- stopped'*) [ $pid = $first ] && resume $pid || tasks="$tasks $pid"
                    [ "$tasks" = "${tasks#* * }" ] || kill -9 $first ;;
    '+++ killed'*) ended=$((ended + 1)); [ $pid != $first ] || resume $tasks ;;
    esac
}
[ "$how" != capable ] || { setcap cap_dac_read_search+ep kestrel; how=; }
follow $how -e inject=chdir:signal=STOP $nobody ./kestrel -c --manifest=m --instdir=tree --tasks=2
echo $ended
-
done
# A signal to the parent ends a task that is starting, which here would go on while the parent
# removes its temporaries.
can $fail trace=none true && expect 'killed by SIGKILL +++
exited with 15 +++' <<'-'
mkdir tree temp && for i in 1 2 3; do echo $i >tree/$i; done
$kestrel -g --manifest=m --instdir=tree >out
at() {
    case $line in
    '--- stopped'*) [ $pid = $first ] && resume ${task:-$pid} || task=$pid ;;
    '+++'*) echo ${line#+++ }; task=; [ $pid = $first ] || resume $first ;;
    esac
}
TEMP=$PWD/temp
export TEMP
follow -e inject=vfork:signal=TERM:when=1 -e inject=execve,unlink,getdents64:signal=STOP \
    $kestrel -c --report --manifest=m --instdir=tree --tasks=2
ls temp
-

# --- Without /proc

can unshare -m sh -c "umount -l /proc && $child --exit 0" && expect child <<'-'
cp $child . && ln -s child link
unshare -m sh -c 'umount -l /proc && cd dir && ../link --where' | sed "s,^$PWD/,,"
-
can sh -c "cp $kestrel . && chroot . ./kestrel -h" && expect 'Manifest file successfully created
Verification passed' <<'-'
mkdir tree && cp $kestrel . && for i in 1 2 3 4 5 6; do echo $i >tree/$i; done
for mode in -g '-c --tasks=2'; do
    chroot . ./kestrel $mode --manifest=m --instdir=tree
done | grep -v '"'
-
exit $status
