#!/bin/sh
# Grades a class on a cluster with Slurm. Where this is started, there are the task and the class, and all nodes see
# them there:
#
#     mkdir parts
#     sbatch --wait --array=1-8 slurm.sh task.toml class
#     tovik-grade --merge parts/*/ --out results
#
#SBATCH --cpus-per-task=2
#SBATCH --time=60
#SBATCH --output=parts/%a.log
part=$SLURM_ARRAY_TASK_ID
exec tovik-grade --jobs "$SLURM_CPUS_PER_TASK" --shard "$part/$SLURM_ARRAY_TASK_COUNT" --out "parts/$part" "$@"
