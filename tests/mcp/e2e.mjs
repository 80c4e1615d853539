// The official clients against the real programs: `snipwren serve` behind, `snipwren mcp` between.
// Usage: node e2e.mjs PATH-TO-SNIPWREN
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { dirname, join } from 'node:path';
import { once } from 'node:events';
import { createInterface } from 'node:readline';

import { Client as OldClient } from '@modelcontextprotocol/sdk/client/index.js';
import { StdioClientTransport as OldTransport } from '@modelcontextprotocol/sdk/client/stdio.js';
import { ResourceUpdatedNotificationSchema } from '@modelcontextprotocol/sdk/types.js';
import { Client } from '@modelcontextprotocol/client';
import { StdioClientTransport } from '@modelcontextprotocol/client/stdio';

const program = process.argv[2];
const home = mkdtempSync(join(tmpdir(), 'snipwren-e2e-'));
const env = { ...process.env, SNIPWREN_HOME: home, SW_TEST_MODE: '1' };
const tools = ['snipwren_capture', 'snipwren_clear_suggestions', 'snipwren_push_context', 'snipwren_push_edge',
    'snipwren_push_memory', 'snipwren_push_node', 'snipwren_push_suggestions', 'snipwren_query_context',
    'snipwren_query_graph', 'snipwren_trigger_ai'];

/** Starts the server; `port` 0 takes any free one. */
async function serve(port = 0) {
    const child = spawn(program, ['serve', '--port', String(port)], { env, stdio: ['ignore', 'pipe', 'inherit'] });
    process.once('exit', () => child.kill('SIGKILL')); // Nothing stays behind when a test fails.
    for await (const line of createInterface({ input: child.stdout })) {
        const found = /127\.0\.0\.1:(\d+)/.exec(line);
        if (found) return { child, port: Number(found[1]) };
    }
    throw new Error('snipwren serve ended without listening');
}

async function stop({ child }) {
    child.kill('SIGTERM');
    const [code] = await once(child, 'exit');
    assert.equal(code, 0, 'snipwren serve ends in order');
}

/** The bridge is started in both of its forms: as a program of its own and as a command. */
let alone = false;
function launch(port) {
    alone = !alone;
    const command = alone ? join(dirname(program), 'snipwren-mcp') : program;
    return { command, args: [...(alone ? [] : ['mcp']), '--port', String(port)], env, stderr: 'inherit' };
}

/** Each kind of client, connected. */
const kinds = {
    'sdk 1.x': async (port) => {
        const client = new OldClient({ name: 'e2e', version: '1' });
        const changes = [];
        client.setNotificationHandler(ResourceUpdatedNotificationSchema, (n) => changes.push(n.params.uri));
        await client.connect(new OldTransport(launch(port)));
        return { client, changes, version: null };
    },
    'client 2.x legacy': (port) => newClient(port, { mode: 'legacy' }),
    'client 2.x automatic': (port) => newClient(port, { mode: 'auto' }),
    'client 2.x pinned': (port) => newClient(port, { mode: { pin: '2026-07-28' } }),
};

async function newClient(port, versionNegotiation) {
    const client = new Client({ name: 'e2e', version: '1' }, { versionNegotiation });
    const changes = [];
    client.setNotificationHandler('notifications/resources/updated', (n) => changes.push(n.params.uri));
    await client.connect(new StdioClientTransport(launch(port)));
    return { client, changes, version: client.getNegotiatedProtocolVersion() };
}

async function text(client, name, args = {}, isError = false) {
    const result = await client.callTool({ name, arguments: args });
    assert.equal(Boolean(result.isError), isError, `${name}: ${JSON.stringify(result)}`);
    return result.content[0].text;
}

async function until(condition, what) {
    for (let i = 0; i < 200; ++i) {
        if (condition()) return;
        await new Promise((resolve) => setTimeout(resolve, 50));
    }
    throw new Error(`waited in vain for ${what}`);
}

async function exercise(kind, port) {
    const { client, changes, version } = await kinds[kind](port);
    if (kind === 'client 2.x legacy') assert.equal(version, '2025-11-25');
    if (kind.endsWith('automatic') || kind.endsWith('pinned')) assert.equal(version, '2026-07-28');

    const listed = await client.listTools();
    assert.deepEqual(listed.tools.map((tool) => tool.name).sort(), tools);
    for (const tool of listed.tools) assert.equal(typeof tool.annotations.readOnlyHint, 'boolean', tool.name);

    const stateless = version === '2026-07-28';
    if (stateless) await client.listen({ resourceSubscriptions: ['snipwren://context'] });
    else await client.subscribeResource({ uri: 'snipwren://context' });

    // The subscription reaches the server beside this call, so the push may come first: push until it is heard.
    for (let i = 0; i < 50 && changes.length === 0; ++i) {
        const pushed = await text(client, 'snipwren_push_context', { project: kind, topic: 'Grüße 🚀', relatedNotes: ['a', 'b'] });
        assert.equal(pushed, 'Context pushed successfully.');
        await new Promise((resolve) => setTimeout(resolve, 20));
    }
    assert.equal(changes[0], 'snipwren://context', 'a change is told');
    const context = await client.callTool({ name: 'snipwren_query_context', arguments: {} });
    assert.equal(context.structuredContent.project, kind);
    assert.equal(context.structuredContent.topic, 'Grüße 🚀');
    assert.equal(context.structuredContent.focusedContext, 'unknown');
    const read = await client.readResource({ uri: 'snipwren://context' });
    assert.equal(JSON.parse(read.contents[0].text).project, kind);
    assert.equal((await client.listResources()).resources[0].uri, 'snipwren://context');
    await assert.rejects(client.readResource({ uri: 'snipwren://other' }), /not found/i);

    assert.equal(await text(client, 'snipwren_push_suggestions', { suggestions: [{ title: 't', actionText: 'a' }] }),
        'Pushed 1 suggestions successfully.');
    assert.equal(await text(client, 'snipwren_clear_suggestions'), 'Suggestions cleared successfully.');
    assert.equal(await text(client, 'snipwren_push_memory', { key: 'k', value: 'v', context: 'c' }),
        'Knowledge memory stored securely.');
    assert.equal(await text(client, 'snipwren_push_memory', { key: 'k' }, true),
        "Invalid params: 'key', 'value', and 'context' strings required");
    await text(client, 'snipwren_push_node', { id: 'a', type: 'person', name: 'Ada' });
    await text(client, 'snipwren_push_node', { id: 'b', type: 'machine', name: 'Engine' });
    await text(client, 'snipwren_push_edge', { id: 'e', source: 'a', target: 'b', relationship: 'programs' });
    const graph = await client.callTool({ name: 'snipwren_query_graph', arguments: { from: 'a' } });
    assert.deepEqual(graph.structuredContent.nodes.map((node) => node.name), ['Ada', 'Engine']);
    assert.equal(graph.structuredContent.edges[0].relationship, 'programs');
    assert.match(await text(client, 'snipwren_trigger_ai', { prompt: 'p' }, true), /^AI Generation error: /);
    await checkCapture(client);
    await assert.rejects(client.callTool({ name: 'no_such_tool', arguments: {} }), /Unknown tool/);
    // Fifty at once come back each to its own caller.
    const many = await Promise.all(Array.from({ length: 50 }, (_, i) =>
        text(client, 'snipwren_query_graph', { id: i % 2 ? 'a' : 'b' })));
    many.forEach((answer, i) => assert.equal(JSON.parse(answer).nodes[0].id, i % 2 ? 'a' : 'b'));
    await client.close();
}

async function checkCapture(client) {
    assert.match(await text(client, 'snipwren_capture', { target: 'note' }, true), /'target' and 'text'/);
    assert.match(await text(client, 'snipwren_capture', { target: '--help', text: 'x' }, true), /no such capture target/);
    await text(client, 'snipwren_capture', { target: 'note', text: 'captured by a tool' });
    const notes = readFileSync(join(home, 'Documents', 'Snipwren', 'Quick Capture.md'), 'utf8');
    assert.match(notes, /captured by a tool/);
}

async function withoutServer(port) {
    for (const kind of Object.keys(kinds)) {
        const { client } = await kinds[kind](port);
        assert.equal((await client.listTools()).tools.length, tools.length, 'tools are listed all the same');
        assert.match(await text(client, 'snipwren_query_context', {}, true), /Snipwren is not running.*snipwren serve/);
        await client.close();
    }
}

/** Pushes until a change is told, which also proves that the subscription has reached the program. */
async function changeIsTold(client, changes) {
    const before = changes.length;
    for (let i = 0; i < 200 && changes.length === before; ++i) {
        await text(client, 'snipwren_push_context', { project: `push ${i}` });
        await new Promise((resolve) => setTimeout(resolve, 20));
    }
    assert.ok(changes.length > before, 'a change is told');
}

/** A client stays usable, and subscribed, when the program is started again. */
async function overARestart() {
    let server = await serve();
    const { client, changes } = await kinds['client 2.x automatic'](server.port);
    await text(client, 'snipwren_query_context');
    await client.listen({ resourceSubscriptions: ['snipwren://context'] });
    await changeIsTold(client, changes);
    const known = changes.length;
    await stop(server);
    await until(() => changes.length > known, 'the loss to be noticed');
    await text(client, 'snipwren_query_context', {}, true);
    server = await serve(server.port);
    await text(client, 'snipwren_query_context');
    await changeIsTold(client, changes);
    await client.close();
    await stop(server);
}

try {
    await withoutServer(9);
    const server = await serve();
    for (const kind of Object.keys(kinds)) {
        await exercise(kind, server.port);
        console.log(`ok ${kind}`);
    }
    await stop(server);
    await overARestart();
    console.log('ok restart');
} finally {
    rmSync(home, { recursive: true, force: true });
}
