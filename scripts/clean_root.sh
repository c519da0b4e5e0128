# shellcheck shell=bash
# Clean Debian root file systems for the scripts beside this file. Sourced after lib.sh, not run.
#
# A script calls run_in_namespaces first: then everything that it mounts and starts ends with it, whatever happens. Then
# make_clean_root makes a file system with only a minimal Debian and git in $clean_root, and run_inside runs commands in
# it. Packages come from the same sources as this machine's own: its mirror, proxy and certificates are copied. Everything
# needs root.

readonly clean_suite=bookworm

# run_in_namespaces ARGUMENT...: runs the calling script again, with these arguments, in its own namespaces and with a
# directory $clean_root that is removed afterwards. Returns only in that second run.
#
# With KAI_CLEAN_ROOT=DIRECTORY in the environment the file system is made there and left there.
# shellcheck disable=SC2154 # kai_caller is lib.sh's
run_in_namespaces() {
    if [[ -n ${KAI_INSIDE_NAMESPACES:-} ]]; then
        clean_root=$KAI_INSIDE_NAMESPACES
        return
    fi
    [[ $(id -u) -eq 0 ]] || die "needs root, to make a file system and change into it"
    install_packages fresh
    local temporary="" status=0
    if [[ -z ${KAI_CLEAN_ROOT:-} ]]; then
        temporary=$(mktemp -d)
        KAI_CLEAN_ROOT=$temporary/root
    fi
    KAI_CLEAN_ROOT=$(realpath -m -- "$KAI_CLEAN_ROOT")
    [[ ! -e $KAI_CLEAN_ROOT ]] || die "$KAI_CLEAN_ROOT exists already"
    mkdir -p -- "$KAI_CLEAN_ROOT"
    # The second run reports its own failure.
    trap - EXIT
    KAI_INSIDE_NAMESPACES=$KAI_CLEAN_ROOT unshare --mount --pid --fork --kill-child --mount-proc --propagation private \
        "$kai_caller" "$@" || status=$?
    if [[ -n $temporary ]]; then
        rm -rf --one-file-system -- "$temporary"
    else
        say "left there: $KAI_CLEAN_ROOT"
    fi
    exit "$status"
}

# This machine's sources of the suite, as "URI RELEASE COMPONENT" lines.
list_sources() {
    # shellcheck disable=SC2016 # apt's own variables
    apt-get indextargets --format '$(REPO_URI) $(RELEASE) $(COMPONENT)' 'Created-By: Packages' 'Origin: Debian' |
        awk -v suite="$clean_suite" '$2 == suite || index($2, suite "-") == 1' | sort -u
}

# Copies this machine's access to packages to the new root file system.
carry_over_apt_settings() {
    list_sources | sed 's/^/deb /' >"$clean_root/etc/apt/sources.list"
    apt-config dump | grep -E '^Acquire::([a-z]+::(Proxy|CaInfo|Verify)|Check-Valid-Until|Check-Date)' \
        >"$clean_root/etc/apt/apt.conf.d/90carried-over" || true
    cp -L /etc/resolv.conf /etc/hosts "$clean_root/etc/"
    local certificates=/usr/local/share/ca-certificates
    if compgen -G "$certificates/*.crt" >/dev/null; then
        mkdir -p "$clean_root$certificates"
        cp "$certificates"/*.crt "$clean_root$certificates/"
    fi
    if list_sources | grep -q '^https:'; then
        mkdir -p "$clean_root/etc/ssl/certs"
        cp -L /etc/ssl/certs/ca-certificates.crt "$clean_root/etc/ssl/certs/"
    fi
}

# Unpacks the file system from $KAI_CLEAN_ROOT_BASE if that file exists; otherwise makes it and stores it there.
bootstrap() {
    local base=${KAI_CLEAN_ROOT_BASE:-} mirror
    if [[ -n $base && -f $base ]]; then
        say "unpacking the root file system $base"
        tar -xf "$base" -C "$clean_root"
        return
    fi
    mirror=$(list_sources | awk -v suite="$clean_suite" '$2 == suite { print $1; exit }')
    [[ -n $mirror ]] || die "this machine's apt has no source for Debian's $clean_suite"
    say "making a root file system of $clean_suite with git in $clean_root"
    debootstrap --variant=minbase --include=git "$clean_suite" "$clean_root" "$mirror" >"$clean_root.log" 2>&1 ||
        die "debootstrap failed: $(tail -n 5 "$clean_root.log")"
    rm -- "$clean_root.log"
    [[ -z $base ]] || tar -cf "$base" -C "$clean_root" .
}

make_clean_root() {
    bootstrap
    carry_over_apt_settings
    mount -t proc proc "$clean_root/proc"
    mount --rbind /dev "$clean_root/dev"
}

# Clones the last commit of this repository into ~/clone inside. Changes that are not committed are not part of it.
clone_inside() {
    say "cloning $(git log -1 --format='%h (%s)')"
    git clone --quiet --bare "$KAI_ROOT" "$clean_root/srv/libkai.git"
    run_inside bash -c "git clone --quiet /srv/libkai.git ~/clone"
}

# Runs a command inside, with a clean environment.
run_inside() {
    chroot "$clean_root" env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LANG=C.UTF-8 \
        ${http_proxy:+http_proxy="$http_proxy"} ${https_proxy:+https_proxy="$https_proxy"} \
        ${no_proxy:+no_proxy="$no_proxy"} "$@" </dev/null
}
