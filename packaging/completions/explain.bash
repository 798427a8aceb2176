# SPDX-License-Identifier: BSD-2-Clause
# bash completion of keystill-explain: the same file knows both programs.
. "${BASH_SOURCE[0]%/*}/keystill"
