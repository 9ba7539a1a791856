#!/usr/bin/env bash
# README's commands in a system that has nothing but git: a minimal Debian 12, made anew and gone afterwards.
#   fresh.sh [root] [user] [confined] [STEP...]
# root      as root
# user      as a user who has sudo
# confined  as root in a plain chroot with the capabilities that containers give: no namespaces, no mounts
# The steps, all of them if none is named: demo test package install examples.
set -euo pipefail
cd "$(dirname "$0")/.."

RELEASE=bookworm
KINDS=(root user confined)
STEPS=(demo test package install examples)
CONTAINER=-all,+chown,+dac_override,+fowner,+fsetid,+kill,+setgid,+setuid,+setpcap,+net_bind_service,+net_raw
CONTAINER+=,+sys_chroot,+mknod,+audit_write,+setfcap

say() { printf '== %s\n' "$*"; }

# Mounts and processes live in namespaces of their own: however this ends, they end with it.
outside() {
  if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { say "making a system needs root, and there is no sudo"; exit 1; }
    exec sudo "$0" "$@"
  fi
  if ! command -v debootstrap >/dev/null; then
    say "installing debootstrap"
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends debootstrap debian-archive-keyring >/dev/null
  fi
  if ! unshare --mount --pid --fork true; then
    say "no system can be made here: the kernel refuses namespaces for mounts and processes"
    exit 1
  fi
  local child=''
  WORK=$(mktemp -d "${TMPDIR:-/tmp}/quorl-fresh.XXXXXX")
  trap 'rm -rf --one-file-system "$WORK"' EXIT
  # The first process of the namespaces dies with the one that made them, and takes all the others along.
  trap 'kill -KILL "$child" 2>/dev/null; sleep 1; exit 130' INT TERM HUP
  export WORK
  # The user of the new system does not own this tree, so the commit goes in as a file.
  git -c safe.directory='*' bundle create -q "$WORK/quorl.bundle" HEAD
  [ -z "$(git -c safe.directory='*' status --porcelain)" ] || say "changes that are not committed are left out"
  FRESH_INSIDE=1 unshare --mount --pid --fork --kill-child "$0" "$@" &
  child=$!
  wait "$child"
}

# This machine's Debian mirrors, as lines "URI SUITE COMPONENT".
mirrors() {
  command -v apt-get >/dev/null || return 0
  apt-get indextargets --format "\$(REPO_URI) \$(RELEASE) \$(COMPONENT)" 'Created-By: Packages' 'Origin: Debian' "$@" |
    sort -u
}

# A mirror, proxies and name servers are those of this machine.
make_base() {
  local base=$1 mirror
  mirror=$(mirrors 'Label: Debian' | awk 'NR == 1 {print $1}')
  say "making a minimal Debian ($RELEASE)"
  debootstrap --variant=minbase --include=git,ca-certificates "$RELEASE" "$base" ${mirror:+"$mirror"} \
    >"$WORK/debootstrap.log" 2>&1 || { tail -n 20 "$WORK/debootstrap.log"; return 1; }
  mirrors "Codename: $RELEASE-security" | sed 's/^/deb /' >>"$base/etc/apt/sources.list"
  apt-config dump --no-empty Acquire | grep -E '^Acquire::(http|https|Check|Retries)' \
    >"$base/etc/apt/apt.conf.d/80this-machine" || true
  cp -L /etc/resolv.conf /etc/hosts "$base/etc/"
  if [ -d /usr/local/share/ca-certificates ]; then
    cp -a /usr/local/share/ca-certificates/. "$base/usr/local/share/ca-certificates/"
    chroot "$base" update-ca-certificates >/dev/null 2>&1
  fi
  rm -f "$base"/var/cache/apt/archives/*.deb
}

make_system() {
  local kind=$1 system=$WORK/$1
  cp -a "$WORK/base" "$system"
  # Namespaces of a network can only be entered where the root directory is a mount. A plain chroot is none.
  [ "$kind" = confined ] || mount --bind "$system" "$system"
  mount -o remount,bind,dev,suid,exec "$system" 2>/dev/null || true
  mount -t proc proc "$system/proc"
  mount -t sysfs sysfs "$system/sys"
  mount --rbind /dev "$system/dev"
  local home=$system/root
  if [ "$kind" = user ]; then
    enter root 'apt-get update -qq && apt-get install -y -qq --no-install-recommends sudo >/dev/null 2>&1 &&
                useradd --create-home --shell /bin/bash --groups sudo someone'
    echo 'someone ALL=(ALL) NOPASSWD: ALL' >"$system/etc/sudoers.d/someone"
    home=$system/home/someone
  fi
  cp "$WORK/quorl.bundle" "$home/"
}

# A command line in the system of a kind: as root for all but the user.
enter() {
  local as=$1 line=$2
  local -a clean=(env -i "TERM=dumb" "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin" HOME=/root)
  local name
  for name in http_proxy https_proxy no_proxy; do [ -z "${!name:-}" ] || clean+=("$name=${!name}"); done
  case $as in
    user) chroot "$system" "${clean[@]}" su - someone -c "$line" ;;
    confined) setpriv --bounding-set="$CONTAINER" chroot "$system" "${clean[@]}" bash -c "cd && $line" ;;
    *) chroot "$system" "${clean[@]}" bash -c "cd && $line" ;;
  esac
}

# One of README's commands, and a row for the table.
step() {
  local kind=$1 name=$2 line=$3 result=ok wall user sys packages
  say "$kind: $name: $line"
  local log=$WORK/$kind-$name.log times=$WORK/times
  TIMEFORMAT='%R %U %S'
  { time enter "$kind" "$line" 2>&1 </dev/null | tee "$log" | sed -u 's/^/   /' || result=FAILED; } 2>"$times"
  read -r wall user sys <"$times"
  packages=$(sed -n 's/^== installed in \([0-9]*\) s.*/\1/p' "$log" | awk '{s += $1} END {print s + 0}')
  [ "$result" = ok ] || failed=1
  cpu=$(awk -v user="$user" -v sys="$sys" 'BEGIN {print user + sys}')
  printf '%-9s %-9s %6.0f s %6d s %6.0f s %6.0f s  %-6s  %s\n' "$kind" "$name" "$wall" "$packages" \
    "$(awk -v wall="$wall" -v packages="$packages" 'BEGIN {print wall - packages}')" "$cpu" "$result" \
    "$(grep -a . "$log" | tail -n 1)" >>"$WORK/table"
}

run_steps() {
  local kind=$1 as_root='' name system=$WORK/$1
  [ "$kind" != user ] || as_root='sudo '
  step "$kind" clone 'git -c advice.detachedHead=false clone -q quorl.bundle quorl &&
    git -C quorl log -1 --format="%h %s"'
  for name in "${steps[@]}"; do
    case $name in
      demo | test | package) step "$kind" "$name" "cd quorl && ./dev $name" ;;
      install)
        step "$kind" install "cd quorl &&
                              ${as_root}apt-get install -y -qq ./build/package/packages/*.deb >/dev/null &&
                              cd / && command -v quorl && quorl --version && quorl demo"
        ;;
      examples)
        step "$kind" examples "cd quorl/examples && cmake -S . -B ~/hosts >/dev/null && cmake --build ~/hosts &&
                               ${as_root}apt-get install -y -qq pkg-config >/dev/null &&
                               cc -Wall -Wextra send.c \$(pkg-config --cflags --libs quorl) -o ~/send && echo built"
        ;;
    esac
  done
}

inside() {
  local word kinds=() steps=() failed=0 kind system
  for word in "$@"; do
    if [[ " ${KINDS[*]} " = *" $word "* ]]; then kinds+=("$word")
    elif [[ " ${STEPS[*]} " = *" $word "* ]]; then steps+=("$word")
    else say "neither a kind nor a step: $word"; return 2
    fi
  done
  [ ${#kinds[@]} -gt 0 ] || kinds=(root)
  [ ${#steps[@]} -gt 0 ] || steps=("${STEPS[@]}")
  mount --make-rprivate /
  make_base "$WORK/base"
  for kind in "${kinds[@]}"; do
    system=$WORK/$kind
    make_system "$kind"
    run_steps "$kind"
  done
  say "a fresh Debian ($RELEASE) on $(nproc) processors; packages: their download and installation; rest: without them"
  printf '%-9s %-9s %8s %8s %8s %8s\n' kind step all packages rest CPU
  cat "$WORK/table"
  return "$failed"
}

if [ -n "${FRESH_INSIDE:-}" ]; then inside "$@"; else outside "$@"; fi; exit
