# SPDX-License-Identifier: Apache-2.0

# Shows the manual's pages to Doxygen. In the folder their links lead to files and to headings, whose
# names are made of their words; here they lead to labels, which this gives to the headings. Links to
# what the reference does not have are left out.

function nameOf(path) {
    sub(/.*\//, "", path)
    sub(/\.md$/, "", path)
    return path
}
function slugOf(title) {
    title = tolower(title)
    gsub(/[^a-z0-9 _-]/, "", title)
    gsub(/ /, "-", title)
    return title
}
# Where a link leads, "" when out of the reference.
function targetOf(link,   parts) {
    if (link ~ /^https?:/) return link
    if (link ~ /include\/vyn\/[a-z_]+\.h$/) return "@ref " nameOf(link)
    split(link, parts, "#")
    if (parts[1] == "") return "@ref " page "-" parts[2]
    if (parts[1] !~ /\.md$/) return ""
    return "@ref " nameOf(parts[1]) (parts[2] == "" ? "" : "-" parts[2])
}
function withTargets(text,   before, label, link, target, image) {
    before = ""
    while (match(text, /\[[^][]*\]\([^()]*\)/)) {
        image = substr(text, RSTART - 1, 1) == "!"
        before = before substr(text, 1, RSTART - 1)
        label = link = substr(text, RSTART, RLENGTH)
        text = substr(text, RSTART + RLENGTH)
        sub(/\]\(.*/, "", label)
        sub(/^\[/, "", label)
        sub(/.*\]\(/, "", link)
        sub(/\)$/, "", link)
        target = image ? link : targetOf(link)
        if (target ~ /^@/) gsub(/`/, "", label)
        before = before (target == "" ? label : "[" label "](" target ")")
    }
    return before text
}

function withCode(text,   parts, count, i) {
    count = split(text, parts, "`")
    text = parts[1]
    for (i = 2; i <= count; ++i) {
        if (i % 2 == 0) gsub(/[\\@&$#<>%"]/, "\\\\&", parts[i])
        text = text (i % 2 == 0 ? "<code>" : "</code>") parts[i]
    }
    return text
}

FNR == 1 { page = nameOf(FILENAME) }
/^```/ { inBlock = !inBlock }
inBlock || /^```/ { print; next }
/^# / { print $0 " {#" page "}"; next }
/^##/ {
    title = $0
    sub(/^#+ /, "", title)
    print $0 " {#" page "-" slugOf(title) "}"
    next
}
{ print withCode(withTargets($0)) }
