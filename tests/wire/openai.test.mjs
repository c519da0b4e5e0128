// The package `openai` against the services that speak chat completions and the Assistants protocol.
import assert from 'node:assert/strict';
import { test } from 'node:test';
import OpenAI from 'openai';
import { collect, startEmulator } from './emulator.mjs';

const rules = [
  { when: { contains: 'refuse' }, refuse: { status: 400, message: 'No.' } },
  { when: { contains: 'limit' }, refuse: { status: 429, message: 'Slow down.' } },
  { when: { contains: 'break' }, answer: 'one two three', stream: { fail: { after: 1, status: 503, message: 'Overloaded' } } },
  { when: { contains: 'cut' }, answer: 'one two three', stream: { cut: { after: 2 } } },
  { when: { contains: 'tool' }, answer: 'done', run: { states: ['requires_action', 'completed'] } },
  { when: { contains: 'fail' }, run: { states: ['failed'], error: { code: 'rate_limit_exceeded', message: 'Too much.' } } },
  { answer: { text: 'one two three', reasoning: 'hm' } },
];
const scenario = { models: ['m', 'n'], rules };
const options = { apiKey: 'k', maxRetries: 0 };

const say = (content) => ({ model: 'm', messages: [{ role: 'system', content: 's' }, { role: 'user', content }] });

for (const provider of ['deepseek', 'openai']) {
  const client = new OpenAI({ ...options, baseURL: `${await startEmulator(provider, scenario)}/v1` });

  test(`${provider}: lists models`, async () => {
    assert.deepEqual((await collect(client.models.list())).map((model) => model.id), ['m', 'n']);
  });

  test(`${provider}: completes a chat`, async () => {
    const completion = await client.chat.completions.create(say('hello'));
    assert.equal(completion.choices[0].message.content, 'one two three');
    assert.equal(completion.choices[0].finish_reason, 'stop');
    assert.ok(completion.usage.total_tokens > 0);
  });

  test(`${provider}: streams a chat`, async () => {
    const stream = await client.chat.completions.create({
      ...say('hello'),
      stream: true,
      stream_options: { include_usage: true },
    });
    const chunks = await collect(stream);
    assert.equal(chunks[0].choices[0].delta.role, 'assistant');
    assert.equal(chunks.map((chunk) => chunk.choices[0]?.delta.content ?? '').join(''), 'one two three');
    assert.equal(chunks.at(-2).choices[0].finish_reason, 'stop');
    assert.deepEqual(chunks.at(-1).choices, []);
    assert.ok(chunks.at(-1).usage.completion_tokens > 0);
  });

  test(`${provider}: puts a streamed chat together`, async () => {
    const completion = await client.chat.completions.stream(say('hello')).finalChatCompletion();
    assert.equal(completion.choices[0].message.content, 'one two three');
  });

  test(`${provider}: tells refusals`, async () => {
    await assert.rejects(client.chat.completions.create(say('refuse')), OpenAI.BadRequestError);
    await assert.rejects(client.chat.completions.create(say('limit')), OpenAI.RateLimitError);
    await assert.rejects(client.models.list({ headers: { Authorization: null } }), OpenAI.AuthenticationError);
  });

  test(`${provider}: tells an error in the middle of a stream`, async () => {
    const stream = await client.chat.completions.create({ ...say('break'), stream: true });
    await assert.rejects(collect(stream), (error) => error instanceof OpenAI.APIError && /Overloaded/.test(error.message));
  });

  test(`${provider}: notices a stream that is cut`, async () => {
    const stream = await client.chat.completions.create({ ...say('cut'), stream: true });
    await assert.rejects(collect(stream));
  });
}

const client = new OpenAI({ ...options, baseURL: `${await startEmulator('openai', scenario)}/v1` });
const { assistants, threads } = client.beta;
const poll = { pollIntervalMs: 1 };

test('retrieves a model', async () => {
  assert.equal((await client.models.retrieve('n')).object, 'model');
  await assert.rejects(client.models.retrieve('x'), OpenAI.NotFoundError);
});

test('keeps assistants', async () => {
  const made = await assistants.create({ model: 'm', name: 'first', instructions: 'Be brief.' });
  assert.equal((await assistants.retrieve(made.id)).name, 'first');
  assert.equal((await assistants.update(made.id, { name: 'second' })).name, 'second');
  assert.ok((await collect(assistants.list())).some((each) => each.id === made.id));
  await assert.rejects(assistants.create({ model: 'x' }), OpenAI.BadRequestError);
  assert.deepEqual(await assistants.delete(made.id), { id: made.id, object: 'assistant.deleted', deleted: true });
  await assert.rejects(assistants.retrieve(made.id), OpenAI.NotFoundError);
});

test('keeps threads and messages', async () => {
  const thread = await threads.create({ messages: [{ role: 'user', content: 'a' }] });
  assert.deepEqual((await threads.update(thread.id, { metadata: { x: 'y' } })).metadata, { x: 'y' });
  assert.deepEqual((await threads.retrieve(thread.id)).metadata, { x: 'y' });
  const message = await threads.messages.create(thread.id, { role: 'user', content: 'b' });
  assert.equal(message.status, 'completed');
  const where = { thread_id: thread.id };
  assert.deepEqual((await threads.messages.update(message.id, { ...where, metadata: { x: 'z' } })).metadata, { x: 'z' });
  assert.deepEqual((await threads.messages.retrieve(message.id, where)).metadata, { x: 'z' });
  assert.equal((await threads.messages.delete(message.id, where)).deleted, true);
  await assert.rejects(threads.messages.retrieve(message.id, where), OpenAI.NotFoundError);
  assert.equal((await threads.delete(thread.id)).object, 'thread.deleted');
});

test('pages through lists', async () => {
  const thread = await threads.create();
  const made = [];
  for (const content of ['a', 'b', 'c', 'd', 'e']) {
    made.push((await threads.messages.create(thread.id, { role: 'user', content })).id);
  }
  const ids = async (query) => (await collect(threads.messages.list(thread.id, query))).map((message) => message.id);
  assert.deepEqual(await ids({ limit: 2, order: 'asc' }), made);
  assert.deepEqual(await ids({ limit: 2 }), [...made].reverse());
  const page = await threads.messages.list(thread.id, { limit: 2, order: 'asc', before: made[4] });
  assert.deepEqual(page.data.map((message) => message.id), made.slice(2, 4));
});

test('runs an assistant', async () => {
  const assistant = await assistants.create({ model: 'm' });
  const thread = await threads.create({ messages: [{ role: 'user', content: 'hello' }] });
  const where = { thread_id: thread.id };
  const run = await threads.runs.createAndPoll(thread.id, { assistant_id: assistant.id }, poll);
  assert.equal(run.status, 'completed');
  assert.ok(run.usage.total_tokens > 0);
  const [answer] = (await threads.messages.list(thread.id, { run_id: run.id })).data;
  assert.equal(answer.content[0].text.value, 'one two three');
  const steps = await collect(threads.runs.steps.list(run.id, where));
  assert.equal(steps[0].step_details.message_creation.message_id, answer.id);
  assert.equal((await threads.runs.steps.retrieve(steps[0].id, { ...where, run_id: run.id })).id, steps[0].id);
  assert.deepEqual((await threads.runs.update(run.id, { ...where, metadata: { x: 'y' } })).metadata, { x: 'y' });
  assert.deepEqual((await collect(threads.runs.list(thread.id))).map((each) => each.id), [run.id]);
  await assert.rejects(threads.runs.cancel(run.id, where), /Cannot cancel run with status 'completed'/);
  await assert.rejects(
    threads.runs.submitToolOutputs(run.id, { ...where, tool_outputs: [] }),
    /Runs in status "completed" do not accept tool outputs/,
  );
});

test('creates a thread and runs it', async () => {
  const assistant = await assistants.create({ model: 'm' });
  const thread = { messages: [{ role: 'user', content: 'hello' }] };
  const run = await threads.createAndRunPoll({ assistant_id: assistant.id, thread }, poll);
  assert.equal(run.status, 'completed');
});

test('waits for the outputs of tools', async () => {
  const assistant = await assistants.create({ model: 'm' });
  const thread = await threads.create({ messages: [{ role: 'user', content: 'tool' }] });
  const run = await threads.runs.createAndPoll(thread.id, { assistant_id: assistant.id }, poll);
  assert.equal(run.status, 'requires_action');
  const [call] = run.required_action.submit_tool_outputs.tool_calls;
  const ended = await threads.runs.submitToolOutputsAndPoll(
    run.id,
    { thread_id: thread.id, tool_outputs: [{ tool_call_id: call.id, output: '1' }] },
    poll,
  );
  assert.equal(ended.status, 'completed');
});

test('tells a failed run and cancels a waiting one', async () => {
  const assistant = await assistants.create({ model: 'm' });
  const thread = await threads.create({ messages: [{ role: 'user', content: 'fail' }] });
  const failed = await threads.runs.createAndPoll(thread.id, { assistant_id: assistant.id }, poll);
  assert.deepEqual(failed.last_error, { code: 'rate_limit_exceeded', message: 'Too much.' });
  const run = await threads.runs.create(thread.id, { assistant_id: assistant.id });
  await assert.rejects(threads.messages.create(thread.id, { role: 'user', content: 'x' }), /while a run/);
  await threads.runs.cancel(run.id, { thread_id: thread.id });
  assert.equal((await threads.runs.poll(run.id, { thread_id: thread.id }, poll)).status, 'cancelled');
});
