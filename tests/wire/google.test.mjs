// The package `@google/genai` against the Gemini protocol.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import { ApiError, GoogleGenAI } from '@google/genai';
import { collect, startEmulator } from './emulator.mjs';

const rules = [
  { when: { contains: 'refuse' }, refuse: { status: 429, message: 'Slow down.' } },
  { when: { contains: 'block' }, choices: [] },
  { when: { contains: 'break' }, answer: 'one two three', stream: { fail: { after: 1, status: 503, message: 'Overloaded' } } },
  { answer: { text: 'one two three', reasoning: 'hm' } },
];
const baseUrl = await startEmulator('google', { models: ['m', 'n', 'o'], rules });
const client = new GoogleGenAI({ apiKey: 'k', httpOptions: { baseUrl } });
const hasStatus = (status) => (error) => error instanceof ApiError && error.status === status;

test('lists models in pages and describes one', async () => {
  const names = (await collect(await client.models.list({ config: { pageSize: 2 } }))).map((model) => model.name);
  assert.deepEqual(names, ['models/m', 'models/n', 'models/o']);
  assert.equal((await client.models.get({ model: 'n' })).name, 'models/n');
  await assert.rejects(client.models.get({ model: 'x' }), hasStatus(404));
});

test('generates content', async () => {
  const config = { temperature: 0.5, systemInstruction: 'Be brief.', responseMimeType: 'text/plain' };
  const response = await client.models.generateContent({ model: 'm', contents: 'hello', config });
  assert.equal(response.text, 'one two three');
  assert.equal(response.candidates[0].finishReason, 'STOP');
  assert.ok(response.usageMetadata.totalTokenCount > 0);
});

test('streams content', async () => {
  const chunks = await collect(await client.models.generateContentStream({ model: 'm', contents: 'hello' }));
  assert.equal(chunks.map((chunk) => chunk.text ?? '').join(''), 'one two three');
  assert.equal(chunks.at(-1).candidates[0].finishReason, 'STOP');
  assert.ok(chunks.at(-1).usageMetadata.candidatesTokenCount > 0);
});

test('chats', async () => {
  const chat = client.chats.create({ model: 'm' });
  await chat.sendMessage({ message: 'a' });
  assert.equal((await chat.sendMessage({ message: 'b' })).text, 'one two three');
  assert.equal(chat.getHistory().length, 4);
});

test('counts tokens', async () => {
  assert.ok((await client.models.countTokens({ model: 'm', contents: 'hello' })).totalTokens > 0);
});

test('tells refusals, blocked prompts and errors in the middle', async () => {
  await assert.rejects(client.models.generateContent({ model: 'm', contents: 'refuse' }), hasStatus(429));
  const blocked = await client.models.generateContent({ model: 'm', contents: 'block' });
  assert.equal(blocked.promptFeedback.blockReason, 'SAFETY');
  const stream = await client.models.generateContentStream({ model: 'm', contents: 'break' });
  await assert.rejects(collect(stream), /Overloaded/);
});
