#!/bin/bash
# A one-node Slurm cluster on this machine for as long as a command runs:
# munged, slurmctld and slurmd on localhost from a generated slurm.conf
# (process tracking by process group, no cgroups), all in FOLDER, stopped
# and their files removed at the end. Exit status 77 when Slurm cannot
# start here (the reason on stderr); otherwise the command's.
#   slurm-one-node.sh FOLDER COMMAND...   (COMMAND sees SLURM_CONF)
set -u
folder=$1; shift
skip() { echo "slurm-one-node: $*" >&2; exit 77; }
for program in munged slurmctld slurmd sbatch; do
    command -v "$program" >/dev/null || skip "$program is not installed (Debian: slurm-wlm, munge)"
done
[[ $(id -u) == 0 ]] || skip "the daemons run as root here, and this is not root"

mkdir -p "$folder"/{state,spool,munge}
pids=()
# Job steps of this cluster (slurmstepd detaches from slurmd, with its
# settings in the environment).
steps() {
    local comm pid
    for comm in /proc/[0-9]*/comm; do
        pid=${comm#/proc/}; pid=${pid%/comm}
        read -r comm 2>/dev/null <"/proc/$pid/comm" && [[ $comm == slurmstepd ]] || continue
        tr '\0' '\n' <"/proc/$pid/environ" 2>/dev/null | grep -qxF "SLURM_CONF=$folder/slurm.conf" && echo "$pid"
    done
}
stop() {
    # A step still finishing when slurmd goes would wait for it for ever.
    for _ in $(seq 50); do [[ -z $(steps) ]] && break; sleep 0.1; done
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null; done
    for pid in "${pids[@]}"; do
        for _ in $(seq 50); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
        kill -9 "$pid" 2>/dev/null
    done
    for pid in $(steps); do kill -9 "$pid" 2>/dev/null; done
    rm -rf "$folder"/state "$folder"/spool "$folder"/munge "$folder"/*.log "$folder"/slurm.conf "$folder"/*.pid
}
trap stop EXIT

host=$(hostname -s)
# Ports of our own, so that a cluster of the machine's is not disturbed.
base=$((20000 + $$ % 20000))
dd if=/dev/urandom of="$folder/munge/key" bs=1024 count=1 status=none
chmod 700 "$folder/munge"; chmod 400 "$folder/munge/key"
munged -F -f --key-file="$folder/munge/key" --socket="$folder/munge/socket" --pid-file="$folder/munge/pid" \
    --log-file="$folder/munge/log" --seed-file="$folder/munge/seed" >/dev/null 2>&1 &
pids+=($!)

cat >"$folder/slurm.conf" <<CONF
ClusterName=evctest
SlurmctldHost=$host(127.0.0.1)
SlurmUser=root
SlurmctldPort=$base
SlurmdPort=$((base + 1))
AuthType=auth/munge
AuthInfo=socket=$folder/munge/socket
CredType=cred/munge
StateSaveLocation=$folder/state
SlurmdSpoolDir=$folder/spool
SlurmctldPidFile=$folder/slurmctld.pid
SlurmdPidFile=$folder/slurmd.pid
SlurmctldLogFile=$folder/slurmctld.log
SlurmdLogFile=$folder/slurmd.log
ProctrackType=proctrack/pgid
TaskPlugin=task/none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
SchedulerType=sched/builtin
# Pending jobs are looked at every second, not every minute: a job waiting
# on another starts at once.
SchedulerParameters=sched_interval=1
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
ReturnToService=2
MpiDefault=none
SlurmctldTimeout=30
NodeName=$host NodeAddr=127.0.0.1 CPUs=$(nproc) State=UNKNOWN
PartitionName=local Nodes=$host Default=YES MaxTime=INFINITE State=UP
CONF
export SLURM_CONF=$folder/slurm.conf
for _ in $(seq 50); do [[ -S $folder/munge/socket ]] && break; sleep 0.1; done
[[ -S $folder/munge/socket ]] || skip "munged did not start: $(tail -n 2 "$folder/munge/log" 2>/dev/null)"
slurmctld -D -i -f "$SLURM_CONF" >/dev/null 2>&1 &
pids+=($!)
slurmd -D -f "$SLURM_CONF" -N "$host" >/dev/null 2>&1 &
pids+=($!)
for _ in $(seq 150); do
    sinfo -h -N -o %t 2>/dev/null | grep -qE '^(idle|mix|alloc)' && break
    sleep 0.2
done
sinfo -h -N -o %t 2>/dev/null | grep -qE '^(idle|mix|alloc)' ||
    skip "the node did not come up: $(tail -n 3 "$folder"/slurmctld.log "$folder"/slurmd.log 2>/dev/null | tr '\n' ' ')"
"$@"
