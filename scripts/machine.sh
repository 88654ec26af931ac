# SPDX-License-Identifier: MIT
# A virtual machine with Debian's kernel and a vcan0; sourced, not run. Its parts are fetched once, without
# installing them, into VELKCAN_VM_CACHE (default: ~/.cache/velkcan-vm). The caller sets:
#
#     scratch       an empty folder
#     programs      an array: what the machine gets from the folder given to runInMachine
#     script        what its shell runs, in an empty folder, with `arguments`, a list without blanks in its words
#     limitSeconds  for one start

readonly helpers=(cansend candump cangen /sbin/tc)
readonly modules=(can-dev vcan can can-raw can-isotp sch_tbf) # each after the modules that it needs
readonly cacheRoot=${VELKCAN_VM_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/velkcan-vm}
readonly notBooted=125

skip() {
    say "SKIPPED: $*"
    [ "${VCAN_REQUIRED:-0}" != 1 ] || exit 1
    exit 77
}

# ---- its parts, in $cache

# The packages of the emulator and of tc include the libraries that this machine lacks.
download() (
    apt=(apt-get -qq -o Debug::NoLocking=1 -o "APT::Sandbox::User=$(id -un)")
    mkdir -p -- "$cache/packages/partial" && cd -- "$cache/packages" &&
        "${apt[@]}" -o Dir::Cache::archives="$PWD" install -y --download-only \
            --no-install-recommends qemu-system-x86 iproute2 &&
        "${apt[@]}" download "$kernel" busybox-static can-utils
)

# An incomplete folder is left over from a run that was interrupted.
fetch() {
    kernel=$(apt-cache depends linux-image-amd64 2>/dev/null |
        sed -n 's/.*Depends: \(linux-image-.*\)/\1/p' | tail -n 1)
    [ -n "$kernel" ] || return
    cache=$cacheRoot/$kernel
    [ ! -e "$cache/complete-2" ] || return 0
    rm -rf -- "$cache"
    runQuietly "fetching $kernel and an emulator" "$scratch/log" download
}

updateLists() {
    runQuietly "updating the lists of packages" "$scratch/log" apt-get -qq update
}

unpack() (
    cd -- "$cache"
    mapfile -t members < <(printf '*/%s.ko\n' "${modules[@]}")
    for package in packages/*.deb; do
        case $package in
            */linux-image-*)
                dpkg --fsys-tarfile "$package" |
                    tar -x --wildcards './boot/vmlinuz-*' "${members[@]}"
                ;;
            *) dpkg -x "$package" . ;;
        esac
    done
    rm -r packages
    touch complete-2 # the number goes up with the list of modules
)

# ---- the machine

# part NAME: prints the path of a program, among the parts or on this machine.
part() {
    local folder
    for folder in "$cache"/{usr/,}{bin,sbin}; do
        if [ -x "$folder/$1" ]; then
            printf '%s\n' "$folder/$1"
            return
        fi
    done
    command -v "$1"
}

withParts() {
    LD_LIBRARY_PATH=$cache/usr/lib/x86_64-linux-gnu:$cache/lib/x86_64-linux-gnu "$@"
}

# copyLibraries PROGRAM...
copyLibraries() {
    withParts ldd "$@" | sed -n 's/.*[[:space:]]\(\/[^ ]*\) (0x.*/\1/p' | sort -u |
        while read -r library; do
            case $library in
                */ld-linux*) cp -L -- "$library" lib64/ ;;
                *) cp -L -- "$library" lib/ ;;
            esac
        done
}

# The kernel passes unknown words of its command line as environment variables: nonce and arguments.
writeInit() {
    cat >init <<'EOF'
#!/bin/sh
/bin/busybox mount -t proc proc /proc || exit # the shell finds its commands through /proc/self/exe
mount -t devtmpfs dev /dev && mount -t tmpfs tmp /tmp || exit
# As on a real bus, a frame is heard when it has left the queue of the interface, not before.
echo 'options vcan echo=1' >/modules/options
for module in $(cat /modules/order); do
    insmod "/modules/$module.ko" $(sed -n "s/options $module //p" /modules/options) || exit
done
ip link add dev vcan0 type vcan && ip link set vcan0 up || exit
echo "ready $nonce"
cd /tmp && LD_LIBRARY_PATH=/lib PATH=/bin:/sbin sh /run $(echo $arguments | tr , ' ')
printf '\nexit %s %s\n' "$nonce" $?
sleep 1 # until the line is written
poweroff -f
EOF
    chmod 755 init
}

# makeInitrd FOLDER: $scratch/initrd, with the programs of the folder.
makeInitrd() (
    set -e
    mkdir -p -- "$scratch/guest" && cd -- "$scratch/guest"
    mkdir bin sbin lib lib64 modules proc dev tmp
    (cd -- "$1" && cp -- "${programs[@]}" "$scratch/guest/bin/")
    for helper in "${helpers[@]}"; do
        cp -- "$(part "${helper##*/}")" sbin/
    done
    copyLibraries bin/* sbin/*
    cp -- "$(part busybox)" bin/busybox && ln -s busybox bin/sh
    for module in "${modules[@]}"; do
        find "$cache/lib/modules" -name "$module.ko" -exec cp -- {} modules/ \;
    done
    printf '%s\n' "${modules[@]}" >modules/order
    cp -- "$script" run
    writeInit
    find . | "$(part busybox)" cpio -o -H newc >"$scratch/initrd" 2>/dev/null
)

# The clock of the machine counts instructions, so that no wait inside depends on the load outside.
emulate() {
    withParts timeout --foreground -k 5 "$limitSeconds" "$(part qemu-system-x86_64)" \
        -L "$cache/usr/share/qemu" -L "$cache/usr/share/seabios" \
        -accel tcg -icount shift=1,sleep=off -M pc -m 512 -nodefaults -no-user-config \
        -display none -serial stdio -no-reboot -kernel "$cache"/boot/vmlinuz-* \
        -initrd "$scratch/initrd" \
        -append "console=ttyS0 panic=-1 quiet tsc=reliable mitigations=off nonce=$1 arguments=${arguments// /,}" \
        </dev/null 2>&1
}

# boot: returns 0 if the tests passed in the machine, 1 if they failed, or $notBooted.
boot() {
    local nonce status
    nonce=$(od -An -N8 -tx8 /dev/urandom | tr -d ' ')
    emulate "$nonce" | sed -u 's/\r$//' | tee "$scratch/serial" || true
    status=$(sed -n "s/^exit $nonce \([0-9]*\)$/\1/p" "$scratch/serial")
    if [ -n "$status" ]; then
        [ "$status" -eq 0 ]
        return
    fi
    grep -qx "ready $nonce" "$scratch/serial" || return "$notBooted"
    say "the virtual machine ended early or took more than $limitSeconds s"
    return 1
}

runInMachine() {
    mkdir -p -- "$cacheRoot"
    exec 9>"$cacheRoot/lock" # only one run prepares the parts at a time
    flock -n 9 || { say "waiting for another run to prepare the parts" && flock 9; }
    fetch || { updateLists && fetch; } || skip "no parts for a virtual machine"
    [ -e "$cache/complete-2" ] || unpack
    exec 9>&-
    makeInitrd "$1"
    local status=0
    boot || status=$?
    if [ "$status" -eq "$notBooted" ]; then
        say "the virtual machine did not start; trying once more"
        status=0
        boot || status=$?
    fi
    return "$status"
}
