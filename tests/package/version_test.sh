#!/usr/bin/env bash
# Packages built from any checkout get a valid Debian version: a shallow
# clone, a clone with changed tracked files, and sources without git.
#   version_test.sh SOURCE_DIR WORK_DIR PROJECT_VERSION
source "$(dirname "$0")/common.sh"
source_dir=$1 work=$2 project_version=$3
fresh_dir "$work"
[ -e "$source_dir/.git" ] || { echo "SKIP: the sources are not a git checkout"; exit 77; }

version_of() {
  cmake -DSOURCE_DIR="$1" -DBASE_VERSION="$project_version" -P "$source_dir/cmake/KelmorVersion.cmake" 2>&1
}
check_valid() {
  dpkg --compare-versions "$1" ge "$project_version" 2>/dev/null || fail "\"$1\" is not a valid Debian version"
}

git clone -q --depth 1 "file://$source_dir" "$work/shallow" || fail "no shallow clone"
[ "$(git -C "$work/shallow" rev-parse --is-shallow-repository)" = true ] || fail "the clone is not shallow"
v=$(version_of "$work/shallow")
note "shallow clone: $v"
[[ $v =~ ^${project_version//./\\.}\+git[0-9]{14}\.[0-9a-f]{7,}$ ]] || fail "shallow clone's version \"$v\""
check_valid "$v"

echo "# changed" >>"$work/shallow/README.md"
v=$(version_of "$work/shallow")
note "changed tracked file: $v"
[[ $v == *.dirty ]] || fail "a dirty checkout's version \"$v\" does not say so"
check_valid "$v"

mkdir -p "$work/plain"
git -C "$work/shallow" archive HEAD | tar -x -C "$work/plain"
v=$(version_of "$work/plain")
note "no git: $v"
[ "$v" = "$project_version" ] || fail "sources without git got \"$v\""
check_valid "$v"
echo "PASS"
