# Puts a document into Kelm Circuit's chunk in a saved Ardour session, as Ardour itself saves
# the plug-in's state after the document was loaded and its knobs set: the chunk (the state's
# header, the parameters and the document's text, base64) and each parameter's value.
# Usage: put_chunk.py SESSION.ardour DOCUMENT NAME "V0 V1 ... V19"
import base64, re, sys

session, document, name, values = sys.argv[1], sys.argv[2], sys.argv[3], sys.argv[4].split()
assert len(values) == 20, "20 parameter values"
text = open(document, "rb").read()
state = (b"KelmCircuit 1\nname: " + name.encode() + b"\npath: \nreload: 0\nparameters: " + " ".join(values).encode() +
         b"\ndocument: " + str(len(text)).encode() + b"\n" + text)
xml = open(session, encoding="utf-8").read()
processor = re.search(r'<Processor [^>]*name="Kelm Circuit".*?</Processor>', xml, re.S)
assert processor, "no Kelm Circuit in the session"
block = processor.group(0)
block, chunks = re.subn(r"<chunk program=\"0\">[^<]*</chunk>",
                        '<chunk program="0">' + base64.b64encode(state).decode() + "</chunk>", block)
assert chunks == 1, "one chunk"
for i, v in enumerate(values):
    block, n = re.subn(r'(<Controllable [^>]*value=")[^"]*("[^>]*parameter="%d"/>)' % i, r"\g<1>%s\g<2>" % v, block)
    assert n == 1, "parameter %d" % i
open(session, "w", encoding="utf-8").write(xml.replace(processor.group(0), block))
