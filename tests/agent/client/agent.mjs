// A real agent for the end-to-end test: the official MCP client connects over
// Streamable HTTP with the bearer token, lists the tools and makes the calls it
// is given, then prints one JSON object of what it saw.
//
//   node agent.mjs URL TOKEN '[{"name": "get_summary", "arguments": {}}, …]'
import { Client } from "@modelcontextprotocol/sdk/client/index.js";
import { StreamableHTTPClientTransport } from "@modelcontextprotocol/sdk/client/streamableHttp.js";

const [url, token, plan = "[]"] = process.argv.slice(2);
const transport = new StreamableHTTPClientTransport(new URL(url), {
  requestInit: { headers: { Authorization: `Bearer ${token}` } },
});
const client = new Client({ name: "ombrelo-test-agent", version: "1.0.0" });

try {
  await client.connect(transport);
} catch (error) {
  console.log(JSON.stringify({ connected: false, error: String(error) }));
  process.exit(0);
}

const listed = await client.listTools();
const calls = [];
for (const { name, arguments: args } of JSON.parse(plan)) {
  const result = await client.callTool({ name, arguments: args });
  calls.push({
    name,
    isError: result.isError ?? false,
    structured: result.structuredContent ?? null,
    text: result.content?.[0]?.text ?? null,
  });
}
console.log(JSON.stringify({
  connected: true,
  server: client.getServerVersion(),
  instructions: client.getInstructions(),
  tools: listed.tools.map((tool) => tool.name),
  calls,
}));
await client.close();
