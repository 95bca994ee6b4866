# Sourced by the scripts that take long, which set `steps` to their number of steps.

step=0

# begin_step TEXT: says on standard error which step begins.
begin_step() {
    echo "${0##*/}: step $((++step)) of $steps: $1" >&2
}
