#!/bin/bash
# The version is set once, in CMakeLists.txt's project(); the man pages take it from there, the
# packages from debian/changelog, and users read NEWS. This checks that the three agree: the newest
# version of each is project()'s, and every version in the changelog stands in NEWS with the day of
# its changelog entry ("unreleased" while the entry's distribution is UNRELEASED), and no other.
#   check-versions.sh SOURCE-DIR PROJECT-VERSION
set -eu
src=$1 project=$2
from_changelog=$(while IFS= read -r line; do
    case "$line" in
        "vorn-virus-agent ("*) version=${line#*(} version=${version%%)*} dist=${line#*) } dist=${dist%%;*} ;;
        " -- "*) [ "$dist" = UNRELEASED ] && day=unreleased || day=$(date -u -d "${line##*>  }" +%F)
                 echo "$version ($day)" ;;
    esac
done < "$src/debian/changelog")
from_news=$(grep -E '^[0-9]+\.[0-9]+\.[0-9]+ \(' "$src/NEWS")
status=0
[ "$(head -n 1 <<< "$from_changelog")" = "$(head -n 1 <<< "$from_news")" ] &&
    [ "${from_news%% *}" = "$project" ] ||
    { echo "newest versions differ: project() $project, debian/changelog $(head -n 1 <<< "$from_changelog"), NEWS $(head -n 1 <<< "$from_news")"; status=1; }
[ "$from_changelog" = "$from_news" ] ||
    { echo "debian/changelog and NEWS list other versions or days:"; diff <(echo "$from_changelog") <(echo "$from_news") || true; status=1; }
# Package builds clamp their files' times to the newest entry's: a date still to come leaves them
# with the times of the build, and two builds differ.
newest=$(sed -n 's/^ -- .*>  //p' "$src/debian/changelog" | head -n 1)
[ "$(date -u -d "$newest" +%s)" -le "$(date -u +%s)" ] ||
    { echo "debian/changelog's newest entry is dated in the future: $newest"; status=1; }
[ $status -eq 0 ] && echo "version $project: project(), debian/changelog and NEWS agree ($(grep -c . <<< "$from_news") versions)"
exit $status
