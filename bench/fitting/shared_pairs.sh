# Sourced by the fitting benchmarks: the shared pairs of the data folder as "name base target"
# entries of the array shared_pairs, from $data.
# shellcheck disable=SC2034
shared_pairs=(
    "amm-cat $data/amm-cat/source.obj $data/amm-cat/target.obj"
    "meshmonk-face $data/meshmonk-face/Template_Rigidly_Aligned.obj $data/meshmonk-face/DemoFace_10K.obj"
    "amm-human-partial $data/amm-human-partial/source.obj $data/amm-human-partial/target.obj"
    "spare-rabbit $data/spare-rabbit/source.obj $data/spare-rabbit/target.obj"
    "bcpd-01-09 $data/bcpd-bodies/01.obj $data/bcpd-bodies/09.obj"
    "spare-bear $data/spare-bear/source.obj $data/spare-bear/target.obj"
    "fastrnrr-human $data/fastrnrr-human/source.obj $data/fastrnrr-human/target_mesh.obj"
)
