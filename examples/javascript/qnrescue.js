// Runs qnrescue with the arguments that it is given, and prints the type and the value of each
// document, in JSON, as it comes. Needs no packages; `qnrescue` has to be in the PATH. Tried with
// Node.js 20.
//
//     node qnrescue.js --list-devices
"use strict";

const { spawn } = require("node:child_process");

const END_OF_DOCUMENT = "</plist>\n";
const ENTITIES = { "&lt;": "<", "&gt;": ">", "&amp;": "&", "&quot;": '"', "&apos;": "'" };

// Returns the value of a property list: dictionaries as objects, data and dates as their text.
function parse(document) {
  const tags = document.matchAll(/<(\/?\w+)(\/?)>([^<]*)/g);

  function read_value([, name, empty, text]) {
    if (name === "dict" || name === "array") {
      const elements = [];
      for (let tag; !empty && (tag = tags.next().value)[1] !== `/${name}`; ) {
        elements.push(read_value(tag));
      }
      return name === "array" ? elements : to_object(elements);
    }
    if (!empty) {
      tags.next(); // the closing tag
    }
    if (name === "true" || name === "false") {
      return name === "true";
    }
    if (name === "integer" || name === "real") {
      return Number(text);
    }
    return text.replace(/&\w+;/g, (entity) => ENTITIES[entity] ?? entity);
  }

  return read_value(tags.next().value);
}

// Returns the object with these keys and values, which take turns.
function to_object(elements) {
  const object = {};
  for (let at = 0; at < elements.length; at += 2) {
    object[elements[at]] = elements[at + 1];
  }
  return object;
}

// Yields the dictionary of each document as it comes. Sets the exit status to the tool's.
async function* run_tool(words) {
  const tool = spawn("qnrescue", words, { stdio: ["ignore", "pipe", "inherit"] });
  const ended = new Promise((resolve, reject) => tool.on("error", reject).on("close", resolve));
  tool.stdout.setEncoding("utf8");
  let text = "";
  for await (const chunk of tool.stdout) {
    text += chunk;
    for (let end; (end = text.indexOf(END_OF_DOCUMENT)) >= 0; ) {
      // What precedes the last <?xml is the rest of a document that ended early.
      yield parse(text.slice(text.lastIndexOf("<?xml", end), end));
      text = text.slice(end + END_OF_DOCUMENT.length);
    }
  }
  process.exitCode = await ended;
}

async function main() {
  for await (const { Type, Value } of run_tool(process.argv.slice(2))) {
    console.log(Type, JSON.stringify(Value));
  }
}

main();
