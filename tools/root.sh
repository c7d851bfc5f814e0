# Sourced after setup.sh by scripts that fetch from the archive which this machine's apt uses, or
# make minimal roots of its releases. The roots, as they come, are kept in build-roots/.

# The release that this machine runs.
release() { (source /etc/os-release && echo "$VERSION_CODENAME"); }

# known_to_apt FIELD: what apt's configured sources say of this release, a word a line.
known_to_apt() {
  apt-get indextargets --format "\$(CODENAME) \$($1)" 'Created-By: Packages' |
    awk -v release="$(release)" '$1 == release && !met[$2]++ { print $2 }'
}

# The archive that this release comes from, or DEBIAN_MIRROR.
archive() {
  local uris=${DEBIAN_MIRROR:-$(known_to_apt REPO_URI)}
  if [ -z "$uris" ]; then
    quietly as_root apt-get update
    uris=$(known_to_apt REPO_URI)
  fi
  [ -n "$uris" ] || { echo "apt has no source for $(release)" >&2; return 1; }
  head -n 1 <<<"$uris"
}

# unpack_root RELEASE FOLDER: a minimal system, nothing configured but its archive. As root.
unpack_root() {
  local mirror components kept=$PWD/build-roots/$1.tar
  if [ ! -f "$kept" ]; then
    mirror=$(archive) || return 1
    components=$(known_to_apt COMPONENT | paste -sd,)
    rm -rf "$2"
    mkdir -p build-roots
    quietly debootstrap --variant=minbase --components="${components:-main}" "$1" "$2" "$mirror" ||
      return 1
    tar -cf "$kept.part" -C "$2" . && mv "$kept.part" "$kept" || return 1
  fi
  rm -rf "$2"
  mkdir -p "$2" && tar -xf "$kept" -C "$2" && cp -L /etc/resolv.conf "$2/etc/resolv.conf"
}

# in_root FOLDER COMMAND...: runs there, as root, with this machine's devices. Nothing that it
# mounts or starts is left.
in_root() {
  unshare --mount --pid --fork --kill-child --mount-proc="$1/proc" sh -ec '
    mount --rbind /dev "$1/dev"
    exec chroot "$@"' - "$1" env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin \
    DEBIAN_FRONTEND=noninteractive "${@:2}" </dev/null
}
