# Shared by the scripts of this folder; sourced, not run. Expects `set -euo pipefail` in the caller.
# shellcheck shell=bash disable=SC2034  # names that the scripts use

KQ_TREE=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# Everything that is made once and kept: compiler cache, cross-built dependencies, the Wine root.
KQ_CACHE=${KQNET_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/kqnet}
KQ_JOBS=$(nproc)
export DEBIAN_FRONTEND=noninteractive

kq_say() { printf '== %s\n' "$*"; }

kq_die() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# kq_as_root COMMAND...: runs it as root, directly or by a sudo that asks nothing. Status 125 when neither is possible.
kq_as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif sudo -n true 2>/dev/null; then
        sudo -n --preserve-env=DEBIAN_FRONTEND "$@"
    else
        return 125
    fi
}

# kq_need_packages PACKAGE...: installs those Debian packages that are missing; stops with their names when it may not.
kq_need_packages() {
    local package missing=() status=0
    for package in "$@"; do
        if [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
            missing+=("$package")
        fi
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    kq_say "installing ${missing[*]}"
    kq_as_root apt-get -q update >/dev/null || status=$?
    [ $status -ne 125 ] || kq_die "these packages are missing, and only root can install them: ${missing[*]}"
    [ $status -eq 0 ] || kq_die "apt-get update failed; these packages are missing: ${missing[*]}"
    kq_as_root apt-get -q install -y --no-install-recommends "${missing[@]}" >/dev/null </dev/null ||
        kq_die "cannot install: ${missing[*]}"
}

# The packages of a native build with its tests. zlib: a static link by pkg-config asks for it, on SQLite's behalf.
KQ_BUILD_PACKAGES=(g++ cmake ninja-build ccache pkg-config libssl-dev libsqlite3-dev zlib1g-dev
    nlohmann-json3-dev libcli11-dev libgtest-dev libgmock-dev libbenchmark-dev)

# The programs that the live tests talk to.
KQ_TEST_PACKAGES=(python3 curl doxygen lftp openssl nginx-light bind9 util-linux iproute2 procps vsftpd)

# kq_use_ccache: keeps compiled objects in the cache folder, shared by every checkout, unless the caller has a place.
kq_use_ccache() {
    export CCACHE_DIR=${CCACHE_DIR:-$KQ_CACHE/ccache}
    export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$KQ_TREE}
    export CCACHE_NOHASHDIR=1
    mkdir -p "$CCACHE_DIR"
}
