# SPDX-License-Identifier: Apache-2.0
# Completion of sdfctl's command lines in bash. The program itself knows what may come next; where that is
# a file, the shell does.
_sdfctl() {
    mapfile -t COMPREPLY < <("$1" --complete "${COMP_LINE:0:COMP_POINT}" 2>/dev/null)
}
complete -o default -F _sdfctl sdfctl
