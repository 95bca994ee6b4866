// Runs qnrescue with the arguments that it is given, and prints the type and the value of each
// document, in JSON, as it comes. `qnrescue` has to be in the PATH. Tried with Node.js 20 and the
// packages plist 5 and fast-plist 0.1: npm install plist
//
//     node qnrescue.mjs --list-devices
import { spawn } from "node:child_process";
import { parse } from "plist"; // or from "fast-plist"

const END_OF_DOCUMENT = "</plist>\n";

// Yields the text of each document. Readers of property lists want one at a time: of several, plist
// refuses all, and fast-plist returns the last one without a word.
async function* cut(stream) {
  let text = "";
  for await (const chunk of stream) {
    text += chunk;
    for (let end; (end = text.indexOf(END_OF_DOCUMENT)) >= 0; ) {
      end += END_OF_DOCUMENT.length;
      // What precedes the last <?xml is the rest of a document that ended early.
      yield text.slice(text.lastIndexOf("<?xml", end), end);
      text = text.slice(end);
    }
  }
}

// Yields the dictionary of each document as it comes. Sets the exit status to the tool's.
async function* run_tool(words) {
  const tool = spawn("qnrescue", words, { stdio: ["ignore", "pipe", "inherit"] });
  const ended = new Promise((resolve, reject) => tool.on("error", reject).on("close", resolve));
  tool.stdout.setEncoding("utf8");
  for await (const document of cut(tool.stdout)) {
    yield parse(document);
  }
  process.exitCode = await ended;
}

for await (const { Type, Value } of run_tool(process.argv.slice(2))) {
  console.log(Type, JSON.stringify(Value));
}
