#!/usr/bin/env bash
# Installs the Debian packages of a folder in the fresh system that this runs in (scripts/fresh-root), uses them as
# people would, removes them, and looks for anything left behind.
# usage: tests/packages/debian.sh FOLDER
set -euo pipefail
cd "$(dirname "$0")/../.."
packages=$1
export DEBIAN_FRONTEND=noninteractive
SETTINGS=/etc/kqnet/kqftpd.json
PUBLIC=/var/lib/kqftpd/public
ADDRESS=ftp://127.0.0.1:2121
AS_SERVICE=(setpriv --reuid kqftpd --regid kqftpd --clear-groups)

say() { printf -- '-- %s\n' "$*"; }

fail() {
    printf 'packages: %s\n' "$*" >&2
    exit 1
}

get() {
    apt-get -q -y --no-install-recommends "$@" >/tmp/apt.log 2>&1 </dev/null && return
    cat /tmp/apt.log
    fail "apt-get $*"
}

# expect TEXT COMMAND...: the command succeeds, and its output has the text.
expect() {
    local text=$1 output
    shift
    output=$("$@" 2>&1) || fail "$* failed: $output"
    [[ $output == *"$text"* ]] || fail "$*: '$text' expected, but: $output"
}

# refuse COMMAND...: the command fails.
refuse() { ! "$@" >/dev/null 2>&1 || fail "succeeded, and should not: $*"; }

has_content() {
    local file
    for file in "$@"; do
        [ -s "$file" ] || fail "$file is missing or empty"
    done
}

# What packages have put into the system. What apt, dpkg and adduser keep for themselves, copies of the account files, and
# caches that any package renews, are left out, and so is the checkout.
system_files() {
    find / -xdev \( -path /proc -o -path /sys -o -path /dev -o -path /tmp -o -path /root -o -path /with \
        -o -path /var/cache -o -path /var/lib/apt -o -path /var/lib/dpkg -o -path /var/log/apt -o -path /run \
        -o -path "/etc/*shadow-" -o -path "/etc/passwd-" -o -path "/etc/group-" \) -prune -o -print | sort
}

install_tools() {
    say "installing the tools and their library"
    get install "$packages"/libkqnet0_*.deb "$packages"/kqnet-tools_*.deb
    expect 'kq 0' kq --version
    expect 'kqftpd 0' kqftpd --version
    expect 'kqftp 0' kqftp --version
    expect '640 root:kqftpd' stat -c '%a %U:%G' "$SETTINGS"
    has_content /usr/share/doc/{libkqnet0,kqnet-tools}/{copyright,NOTICE} /usr/share/common-licenses/Apache-2.0
    expect 'common-licenses/Apache-2.0' cat /usr/share/doc/kqnet-tools/copyright
    has_content /usr/share/man/man1/{kq,kqftp}.1.gz /usr/share/man/man8/kqftpd.8.gz
    expect 'settings are good' "${AS_SERVICE[@]}" kqftpd --settings "$SETTINGS" --check
}

# There is no service manager in this root: the server is started as the unit says.
serve() {
    say "serving with the settings as installed"
    head -c 300000 /dev/urandom >"$PUBLIC/sample"
    "${AS_SERVICE[@]}" kqftpd --settings "$SETTINGS" >/tmp/server.log 2>&1 &
    local server=$! tries=0
    until grep -q '^listening on' /tmp/server.log; do
        kill -0 $server || fail "the server ended: $(cat /tmp/server.log)"
        [ $((tries += 1)) -lt 100 ] || fail "the server does not listen"
        sleep 0.1
    done
    curl -sS "$ADDRESS/sample" | cmp - "$PUBLIC/sample" || fail "another file came back"
    curl -sSk --ssl-reqd "$ADDRESS/sample" | cmp - "$PUBLIC/sample" || fail "another file came back by TLS"
    kqftp --quiet --tls explicit get "$ADDRESS/sample" /tmp/fetched
    cmp /tmp/fetched "$PUBLIC/sample" || fail "another file came back to kqftp"
    refuse curl -sS -T /etc/hostname "$ADDRESS/upload"
    kill -HUP $server
    tries=0
    until [ "$(grep -c '^listening on' /tmp/server.log)" -ge 2 ]; do
        [ $((tries += 1)) -lt 100 ] || fail "the server does not read its settings again"
        sleep 0.1
    done
    kill -TERM $server
    wait $server || fail "the server ended with $?"
    has_content /var/log/kqftpd/kqftpd.log /var/lib/kqftpd/state/kqftpd.crt
    rm "$PUBLIC/sample"
}

# Nothing but the development package and a compiler: no package that the libraries themselves are made of.
build_outside() {
    say "building a program outside"
    get install "$packages"/libkqnet-dev_*.deb
    cmake -S tests/install/project -B /tmp/by-package -G Ninja -DWANTED=0.1 >/dev/null
    cmake --build /tmp/by-package >/dev/null
    /tmp/by-package/outside_host
    local flags
    read -ra flags <<<"$(pkg-config --static --cflags --libs kqnet)"
    c++ -std=c++20 tests/install/outside_host.cpp -o /tmp/by-pc "${flags[@]}"
    /tmp/by-pc
}

# Settings that somebody changed survive a new installation and a removal, as does their protection.
keep_settings() {
    say "installing again, removing"
    sed -i 's/2121/2122/' "$SETTINGS"
    get install --reinstall "$packages"/kqnet-tools_*.deb
    expect 2122 cat "$SETTINGS"
    expect '640 root:kqftpd' stat -c '%a %U:%G' "$SETTINGS"
    get remove kqnet-tools libkqnet-dev libkqnet0
    expect 2122 cat "$SETTINGS"
    refuse command -v kqftpd
    [ -d /var/lib/kqftpd/state ] || fail "removing took the server's state"
}

purge() {
    say "purging"
    get purge kqnet-tools
    get autoremove --purge
    refuse dpkg-query -W 'libkqnet*' 'kqnet*'
    refuse getent passwd kqftpd
    refuse getent group kqftpd
    system_files >/tmp/after
    diff /tmp/before /tmp/after || fail "the system is not what it was"
}

say "preparing"
get update
get install curl ca-certificates g++ cmake ninja-build pkg-config adduser
refuse dpkg-query -W libssl-dev
system_files >/tmp/before
install_tools
serve
build_outside
keep_settings
purge
say "packages: installed, used, removed; nothing left behind"
