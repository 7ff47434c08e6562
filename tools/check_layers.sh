#!/bin/sh
# Reads the #includes and refuses one that points up or across: every folder may include
# itself and the folders named behind it.
set -eu
cd "$(dirname "$0")/.."
allowed() {
    case $1 in
        core/shared) echo 'core/shared' ;;
        config) echo 'config|core/shared' ;;
        endpoints) echo 'endpoints|config|core/shared' ;;
        http) echo 'http|core/shared' ;;
        device) echo 'device|core/shared' ;;
        api) echo 'api|device|config|endpoints/stats_document|http|core/shared' ;;
        tools) echo 'tools' ;;
        core) echo 'core|endpoints|config|api|device|tools/packed_assets' ;;
    esac
}
status=0
for layer in core/shared config endpoints http device api tools core; do
    pattern=$(allowed $layer)
    files=$(git ls-files "$layer/*.h" "$layer/*.cpp")
    [ "$layer" = core ] && files=$(echo "$files" | grep -v '^core/shared/')
    for file in $files; do
        grep -nE '^#include "' "$file" | grep -vE "\"($pattern)[/.]" | sed "s|^|$file:|" | grep . && status=1
    done
done
[ $status = 0 ] || echo "These includes point against the layers (docs/architecture.md)."
exit $status
