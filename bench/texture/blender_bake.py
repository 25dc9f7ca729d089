# Peer of the texture benchmark: Blender's Cycles bake "selected to active"
# of the source's texture (as emission) onto the target's UVs.
#   blender -b --factory-startup --python blender_bake.py -- SOURCE.obj TEXTURE TARGET.obj OUT.png SIZE DISTANCE
import sys

import bpy

argv = sys.argv[sys.argv.index("--") + 1:]
source_path, texture_path, target_path, out_path = argv[:4]
size = int(argv[4])
distance = float(argv[5])

bpy.ops.wm.read_factory_settings(use_empty=True)


def load(path):
    bpy.ops.wm.obj_import(filepath=path)
    return bpy.context.selected_objects[0]


source = load(source_path)
target = load(target_path)

material = bpy.data.materials.new("source")
material.use_nodes = True
nodes = material.node_tree.nodes
nodes.clear()
texture = nodes.new("ShaderNodeTexImage")
texture.image = bpy.data.images.load(texture_path)
emission = nodes.new("ShaderNodeEmission")
output = nodes.new("ShaderNodeOutputMaterial")
material.node_tree.links.new(texture.outputs["Color"], emission.inputs["Color"])
material.node_tree.links.new(emission.outputs["Emission"], output.inputs["Surface"])
source.data.materials.clear()
source.data.materials.append(material)

baked = bpy.data.images.new("baked", size, size, alpha=True)
receiver = bpy.data.materials.new("target")
receiver.use_nodes = True
node = receiver.node_tree.nodes.new("ShaderNodeTexImage")
node.image = baked
node.select = True
receiver.node_tree.nodes.active = node
target.data.materials.clear()
target.data.materials.append(receiver)

scene = bpy.context.scene
scene.render.engine = "CYCLES"
scene.cycles.device = "CPU"
scene.cycles.samples = 1
# Debian's Blender is built without OpenImageDenoise; with denoising on, the
# bake fails inside and leaves the image empty while reporting success.
scene.cycles.use_denoising = False
bpy.ops.object.select_all(action="DESELECT")
source.select_set(True)
target.select_set(True)
bpy.context.view_layer.objects.active = target
bpy.ops.object.bake(type="EMIT", use_selected_to_active=True, cage_extrusion=distance,
                    max_ray_distance=2.0 * distance, margin=16)
baked.filepath_raw = out_path
baked.file_format = "PNG"
baked.save()
