# Sourced by the scripts in the root: packages and the build folder.

as_root() {
  if [ "$(id -u)" = 0 ]; then "$@"; else sudo -- "$@"; fi
}

# quietly COMMAND...: its output is shown only when it fails.
quietly() {
  local log status=0
  log=$(mktemp)
  "$@" >"$log" 2>&1 || status=$?
  [ "$status" = 0 ] || cat "$log" >&2
  rm -f "$log"
  return "$status"
}

# need PACKAGE...: installs what is missing; says nothing when nothing is.
need() {
  local package missing=()
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' ||
      missing+=("$package")
  done
  [ ${#missing[@]} = 0 ] && return
  echo "Installing ${missing[*]}" >&2
  if ! { quietly as_root apt-get update &&
    quietly as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends \
      "${missing[@]}"; }; then
    echo "Could not install ${missing[*]}" >&2
    return 1
  fi
}

# What the library, the plug-in and the tool are built with, and what pipelines run with.
need_for_building() {
  need g++ pkgconf meson ninja-build libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev \
    gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good libsndfile1-dev \
    libcli11-dev libpcap-dev libsamplerate0-dev nlohmann-json3-dev asterisk-core-sounds-en-wav "$@"
}

# Where to build.
build_folder=build

# configure [OPTION...]: makes the folder or sets these options in it.
configure() {
  local again=()
  [ -f "$build_folder/build.ninja" ] && again=(--reconfigure)
  quietly meson setup "${again[@]}" "$build_folder" --buildtype=release "$@"
}

# compile [TARGET...]: all of it when nothing is named.
compile() { quietly meson compile -C "$build_folder" "$@"; }
