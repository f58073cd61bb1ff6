# SPDX-License-Identifier: Apache-2.0

# Shows the headers to Doxygen, for which their comments are plain ones.
#
# - "// Text" becomes "/// Text", and behind a declaration "///< Text".
# - A comment speaks for all declarations up to the next blank line or comment. Each gets a copy, but
#   destructors, overrides, which inherit theirs, and what is deleted.
# - "// --- Title." begins a section of a class.
# - A comment in front of a namespace is about the file.

function printComment(   i) {
    for (i = 1; i <= comments; ++i) print "///" comment[i]
}
function endSection() {
    if (inSection) print "///@}"
    inSection = 0
}
function braces(text) { return gsub(/[{]/, "", text) - gsub(/[}]/, "", text) }

# Inside of a function, and behind the first line of a declaration or macro, nothing is documented.
depth > 0 { depth += braces($0); print; next }
continued { continued = isMacro ? /\\$/ : !/[;}]$/; print; next }

/^ *\/\/ --- / {
    endSection()
    gsub(/^ *\/\/ --- |\.$/, "")
    print "/// @name " $0 "\n///@{\n"
    inSection = 1
    comments = 0
    next
}
/^ *\/\// {
    if (!isFresh) comments = 0
    isFresh = 1
    sub(/^ *\/\//, "")
    comment[++comments] = $0
    next
}
{
    code = $0
    sub(/ +\/\/.*/, "", code)
    isMacro = code ~ /^#define/
}
code == "" || code ~ /^ *((public|protected|private):|};)$/ { comments = 0 }
code ~ /^ *((public|protected|private):|};)$/ { endSection() }
code ~ /^#pragma once/ { print "/// @file" }
code ~ /^namespace/ && comments > 0 { print "/// @file"; printComment(); print ""; comments = 0 }
isMacro || code ~ /^ *[^ #}]/ {
    if (isFresh || code !~ / (= delete|override);$|^ *(virtual )?~/) printComment()
}
{
    sub(/;  +\/\/ /, ";  ///< ")
    print
    isFresh = 0
    if (code ~ /^ *(template|class|struct|enum|namespace|extern).*[{]$/) comments = 0
    else if (code ~ /[{]$/) depth = braces(code)
    else continued = isMacro ? code ~ /\\$/ : code ~ /[^;{}:]$/ && code !~ /^#/
}
