# Sourced by the scripts in the root: packages and the build folder.

as_root() {
  if [ "$(id -u)" = 0 ]; then "$@"; else sudo -- "$@"; fi
}

# need PACKAGE...: installs what is missing; says nothing when nothing is.
need() {
  local package log missing=()
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' ||
      missing+=("$package")
  done
  [ ${#missing[@]} = 0 ] && return
  echo "Installing ${missing[*]}" >&2
  log=$(mktemp)
  if ! { as_root apt-get update &&
    as_root env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends \
      "${missing[@]}"; } >"$log" 2>&1; then
    cat "$log" >&2
    rm -f "$log"
    echo "Could not install ${missing[*]}" >&2
    return 1
  fi
  rm -f "$log"
}

# What the library, the plug-in and the tool are built with, and what pipelines run with.
need_for_building() {
  need g++ pkg-config meson ninja-build libgstreamer1.0-dev libgstreamer-plugins-base1.0-dev \
    gstreamer1.0-tools gstreamer1.0-plugins-base gstreamer1.0-plugins-good libsndfile1-dev \
    libcli11-dev asterisk-core-sounds-en-wav "$@"
}

# build [OPTION...]: configures build/ with these options and builds; output only when it fails.
build() {
  local log again=()
  log=$(mktemp)
  [ -f build/build.ninja ] && again=(--reconfigure)
  if ! { meson setup "${again[@]}" build --buildtype=release "$@" &&
    meson compile -C build; } >"$log" 2>&1; then
    cat "$log" >&2
    rm -f "$log"
    echo "The build failed." >&2
    return 1
  fi
  rm -f "$log"
}
