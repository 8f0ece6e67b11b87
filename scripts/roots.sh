# Roots of other Debian systems inside this one; sourced after lib.sh, not run.
# shellcheck shell=bash

CODENAME=$(. /etc/os-release && printf '%s' "$VERSION_CODENAME")
KEYRING=/usr/share/keyrings/debian-archive-keyring.gpg

# kq_mirror_lines: "URI suite component" of each Debian archive that apt is set up with here.
kq_mirror_lines() {
    # shellcheck disable=SC2016  # the names are apt's, not the shell's
    apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' |
        awk -v name="$CODENAME" '$3 == "main" && ($2 == name || $2 == name "-updates" || $2 == name "-security")' |
        sort -u
}

# kq_need_mirror: stops unless apt knows where to get Debian from.
kq_need_mirror() {
    [ -n "$(kq_mirror_lines)" ] || kq_as_root apt-get -q update >/dev/null || true
    [ -n "$(kq_mirror_lines)" ] || kq_die "apt names no archive of Debian $CODENAME here"
}

# kq_make_root ARCHITECTURE FOLDER: makes a base system whose apt reaches its mirror as this machine's does. Its sources
# are debootstrap's own, the main suite alone: that is whole in itself, and a mirror that is being updated often has the
# other suites half.
kq_make_root() {
    local mirror
    kq_need_mirror
    mirror=$(kq_mirror_lines | awk -v name="$CODENAME" '$2 == name { print $1; exit }')
    kq_as_root rm -rf "$2"
    kq_as_root debootstrap --arch="$1" --variant=minbase --keyring="$KEYRING" "$CODENAME" "$2" "$mirror"
    # How this machine reaches its mirrors: proxies, and clocks that differ from the mirror's.
    { apt-config dump | grep -E '^Acquire::(https?::|Check-)' || true; } |
        kq_as_root tee "$2/etc/apt/apt.conf.d/90host" >/dev/null
    kq_as_root cp /etc/resolv.conf /etc/hosts "$2/etc/"
}
