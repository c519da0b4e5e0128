// The package `ollama` against its protocol.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { Ollama } from 'ollama';
import { collect, startEmulator } from './emulator.mjs';

const rules = [
  { when: { contains: 'refuse' }, refuse: { status: 500, message: 'out of memory' } },
  { when: { contains: 'break' }, answer: 'one two three', stream: { fail: { after: 1, message: 'out of memory' } } },
  { when: { contains: 'cut' }, answer: 'one two three', stream: { without_end: true } },
  { answer: { text: 'one two three', reasoning: 'hm' } },
];
const client = new Ollama({ host: await startEmulator('ollama', { models: ['m:latest', 'n:1b'], rules }) });
const say = (content) => ({ model: 'm', messages: [{ role: 'user', content }] });

test('lists, shows and counts models', async () => {
  assert.deepEqual((await client.list()).models.map((model) => model.name), ['m:latest', 'n:1b']);
  assert.equal((await client.ps()).models.length, 2);
  assert.equal((await client.show({ model: 'm' })).details.format, 'gguf');
  await assert.rejects(client.show({ model: 'x' }), /not found/);
});

test('chats whole and in pieces', async () => {
  const whole = await client.chat(say('hello'));
  assert.equal(whole.message.content, 'one two three');
  assert.equal(whole.message.thinking, 'hm');
  const pieces = await collect(await client.chat({ ...say('hello'), stream: true }));
  assert.equal(pieces.map((piece) => piece.message.content).join(''), 'one two three');
  assert.ok(pieces.at(-1).done);
  assert.ok(pieces.at(-1).eval_count > 0);
});

test('generates whole and in pieces', async () => {
  assert.equal((await client.generate({ model: 'm', prompt: 'hello' })).response, 'one two three');
  const pieces = await collect(await client.generate({ model: 'm', prompt: 'hello', stream: true }));
  assert.equal(pieces.map((piece) => piece.response).join(''), 'one two three');
});

test('tells refusals, errors in the middle and streams without an end', async () => {
  await assert.rejects(client.chat(say('refuse')), /out of memory/);
  await assert.rejects(client.chat({ ...say('hello'), model: 'x' }), /not found/);
  await assert.rejects(collect(await client.chat({ ...say('break'), stream: true })), /out of memory/);
  await assert.rejects(collect(await client.chat({ ...say('cut'), stream: true })), /success response/);
});
