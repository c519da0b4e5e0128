-- A shop's database, the same every time: whatever looks random is arithmetic on row numbers.

PRAGMA page_size = 4096;

BEGIN;

CREATE TABLE customers (
    customer_id INTEGER PRIMARY KEY,
    name        TEXT NOT NULL,
    email       VARCHAR(255) NOT NULL UNIQUE,
    country     CHAR(2) NOT NULL,
    joined_on   DATE NOT NULL
);

-- A customer has several addresses, numbered from 1 for each customer.
CREATE TABLE addresses (
    customer_id INTEGER NOT NULL REFERENCES customers,
    address_no  INTEGER NOT NULL,
    street      TEXT NOT NULL,
    city        TEXT NOT NULL,
    postal_code TEXT,
    PRIMARY KEY (customer_id, address_no)
);

CREATE TABLE categories (
    category_id INTEGER PRIMARY KEY,
    parent_id   INTEGER REFERENCES categories (category_id),
    name        TEXT NOT NULL
);

CREATE TABLE products (
    product_id  INTEGER PRIMARY KEY,
    category_id INTEGER NOT NULL REFERENCES categories (category_id),
    name        TEXT NOT NULL,
    price       DECIMAL(10,2) NOT NULL,
    weight_g    INTEGER NOT NULL,
    is_sold     BOOLEAN NOT NULL DEFAULT 1
);

CREATE TABLE suppliers (
    supplier_id INTEGER PRIMARY KEY,
    name        TEXT NOT NULL,
    country     CHAR(2) NOT NULL
);

-- Which supplier delivers which product, at what price.
CREATE TABLE product_suppliers (
    product_id     INTEGER NOT NULL REFERENCES products (product_id),
    supplier_id    INTEGER NOT NULL REFERENCES suppliers (supplier_id),
    purchase_price DECIMAL(10,2) NOT NULL,
    PRIMARY KEY (product_id, supplier_id)
) WITHOUT ROWID;

CREATE TABLE warehouses (
    warehouse_id INTEGER PRIMARY KEY,
    name         TEXT NOT NULL,
    city         TEXT NOT NULL
);

CREATE TABLE stock (
    warehouse_id INTEGER NOT NULL REFERENCES warehouses,
    product_id   INTEGER NOT NULL REFERENCES products,
    quantity     INTEGER NOT NULL,
    PRIMARY KEY (warehouse_id, product_id)
) WITHOUT ROWID;

CREATE TABLE orders (
    order_id        INTEGER PRIMARY KEY,
    customer_id     INTEGER NOT NULL REFERENCES customers (customer_id),
    ship_address_no INTEGER NOT NULL,
    ordered_at      DATETIME NOT NULL,
    status          TEXT NOT NULL CHECK (status IN ('open', 'shipped', 'delivered', 'returned')),
    FOREIGN KEY (customer_id, ship_address_no) REFERENCES addresses
);

CREATE TABLE order_lines (
    order_id   INTEGER NOT NULL REFERENCES orders,
    line_no    INTEGER NOT NULL,
    product_id INTEGER NOT NULL REFERENCES products (product_id),
    quantity   INTEGER NOT NULL,
    unit_price DECIMAL(10,2) NOT NULL,
    line_total DECIMAL(10,2) GENERATED ALWAYS AS (quantity * unit_price) VIRTUAL,
    PRIMARY KEY (order_id, line_no)
);

CREATE TABLE payments (
    payment_id INTEGER PRIMARY KEY,
    order_id   INTEGER NOT NULL REFERENCES orders (order_id),
    amount     DECIMAL(10,2) NOT NULL,
    paid_on    DATE,
    method     TEXT NOT NULL
);

CREATE INDEX orders_by_customer ON orders (customer_id);
CREATE INDEX order_lines_by_product ON order_lines (product_id);

CREATE VIEW order_totals AS
SELECT o.order_id, o.customer_id, o.ordered_at, o.status,
       count(*) AS line_count, round(sum(l.line_total), 2) AS total
FROM orders AS o JOIN order_lines AS l ON l.order_id = o.order_id
GROUP BY o.order_id;

CREATE VIEW product_sales AS
SELECT p.product_id, p.name, c.name AS category,
       coalesce(sum(l.quantity), 0) AS sold, round(coalesce(sum(l.line_total), 0), 2) AS revenue
FROM products AS p
JOIN categories AS c ON c.category_id = p.category_id
LEFT JOIN order_lines AS l ON l.product_id = p.product_id
GROUP BY p.product_id;

CREATE TEMP TABLE words (kind TEXT, place INTEGER, word TEXT, PRIMARY KEY (kind, place));
INSERT INTO words VALUES
    ('first', 0, 'Anna'), ('first', 1, 'Björn'), ('first', 2, 'Chloé'), ('first', 3, 'Dmitri'), ('first', 4, 'Emilia'),
    ('first', 5, 'Farid'), ('first', 6, 'Grace'), ('first', 7, 'Hiro'), ('first', 8, 'Ines'), ('first', 9, 'Jakub'),
    ('first', 10, 'Katja'), ('first', 11, 'Luca'), ('first', 12, 'Maya'), ('first', 13, 'Nikos'), ('first', 14, 'Olga'),
    ('first', 15, 'Pedro'), ('first', 16, 'Quinn'),
    ('last', 0, 'Almeida'), ('last', 1, 'Bauer'), ('last', 2, 'Castro'), ('last', 3, 'Dubois'), ('last', 4, 'Eriksen'),
    ('last', 5, 'Fischer'), ('last', 6, 'García'), ('last', 7, 'Hoffmann'), ('last', 8, 'Ivanova'),
    ('last', 9, 'Jansen'), ('last', 10, 'Kowalski'), ('last', 11, 'López'), ('last', 12, 'Moreau'),
    ('last', 13, 'Novák'), ('last', 14, 'O''Brien'), ('last', 15, 'Petrov'), ('last', 16, 'Rossi'),
    ('last', 17, 'Sato'), ('last', 18, 'Tanaka'),
    ('country', 0, 'DE'), ('country', 1, 'FR'), ('country', 2, 'ES'), ('country', 3, 'IT'), ('country', 4, 'PL'),
    ('country', 5, 'NL'), ('country', 6, 'AT'),
    ('city', 0, 'Hamburg'), ('city', 1, 'Lyon'), ('city', 2, 'Sevilla'), ('city', 3, 'Torino'), ('city', 4, 'Łódź'),
    ('city', 5, 'Utrecht'), ('city', 6, 'Graz'),
    ('street', 0, 'Mill Lane'), ('street', 1, 'Harbour Road'), ('street', 2, 'Station Street'),
    ('street', 3, 'Orchard Way'), ('street', 4, 'Church Square'),
    ('quality', 0, 'Plain'), ('quality', 1, 'Folding'), ('quality', 2, 'Large'), ('quality', 3, 'Small'),
    ('quality', 4, 'Blue'), ('quality', 5, 'Green'), ('quality', 6, 'Sturdy'), ('quality', 7, 'Light'),
    ('thing', 0, 'kettle'), ('thing', 1, 'lamp'), ('thing', 2, 'chair'), ('thing', 3, 'notebook'),
    ('thing', 4, 'backpack'), ('thing', 5, 'bicycle bell'), ('thing', 6, 'teapot'), ('thing', 7, 'desk'),
    ('thing', 8, 'blanket'), ('thing', 9, 'puzzle'), ('thing', 10, 'watering can'), ('thing', 11, 'clock'),
    ('thing', 12, 'umbrella'), ('thing', 13, 'mug'), ('thing', 14, 'rope');

INSERT INTO customers
WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 300)
SELECT i, f.word || ' ' || l.word, 'customer' || i || '@example.com', c.word,
       date('2021-01-04', '+' || (i * 37 % 1400) || ' days')
FROM n
JOIN words AS f ON f.kind = 'first' AND f.place = i * 5 % 17
JOIN words AS l ON l.kind = 'last' AND l.place = i * 7 % 19
JOIN words AS c ON c.kind = 'country' AND c.place = (i * i + i / 4) % 7
ORDER BY i;

INSERT INTO addresses
WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 3)
SELECT c.customer_id, n.i, (c.customer_id * 3 + n.i) % 120 + 1 || ' ' || s.word, t.word,
       CASE WHEN (c.customer_id + n.i) % 11 <> 0 THEN printf('%05d', c.customer_id * 271 % 90000 + 10000) END
FROM customers AS c
JOIN n ON n.i <= 1 + c.customer_id % 3
JOIN words AS s ON s.kind = 'street' AND s.place = (c.customer_id + n.i) % 5
JOIN words AS t ON t.kind = 'city' AND t.place = (c.customer_id + n.i * n.i) % 7
ORDER BY c.customer_id, n.i;

INSERT INTO categories VALUES
    (1, NULL, 'Everything'), (2, 1, 'Home'), (3, 1, 'Office'), (4, 1, 'Outdoors'), (5, 2, 'Kitchen'),
    (6, 2, 'Living room'), (7, 3, 'Paper'), (8, 4, 'Bicycles');

INSERT INTO products
WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 120)
SELECT i, 2 + i * 3 % 7, q.word || ' ' || t.word, round(2.5 + i * 131 % 9700 / 100.0, 2), 50 + i * 173 % 4000,
       i % 17 <> 0
FROM n
JOIN words AS q ON q.kind = 'quality' AND q.place = (i - 1) / 15
JOIN words AS t ON t.kind = 'thing' AND t.place = (i - 1) % 15
ORDER BY i;

INSERT INTO suppliers
WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 12)
SELECT i, l.word || ' & Co.', c.word
FROM n
JOIN words AS l ON l.kind = 'last' AND l.place = i * 3 % 19
JOIN words AS c ON c.kind = 'country' AND c.place = i % 7
ORDER BY i;

INSERT INTO product_suppliers
SELECT p.product_id, s.supplier_id, round(p.price * (0.4 + s.supplier_id / 60.0), 2)
FROM products AS p JOIN suppliers AS s
ON s.supplier_id IN (1 + p.product_id % 12, 1 + p.product_id * 5 % 12);

INSERT INTO warehouses VALUES (1, 'North', 'Hamburg'), (2, 'South', 'Graz');

INSERT INTO stock
SELECT w.warehouse_id, p.product_id, p.product_id * (7 * w.warehouse_id + 3) % 90
FROM warehouses AS w JOIN products AS p;

INSERT INTO orders
WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 1500),
drawn AS (SELECT i, 1 + i * i % 291 AS customer_id FROM n)
SELECT i, customer_id, 1 + i % (1 + customer_id % 3),
       datetime('2023-01-02 08:00:00', '+' || (i * 11) || ' hours', '+' || (i * 13 % 60) || ' minutes'),
       CASE WHEN i > 1460 THEN 'open' WHEN i > 1400 THEN 'shipped' WHEN i % 29 = 0 THEN 'returned' ELSE 'delivered' END
FROM drawn
ORDER BY i;

INSERT INTO order_lines (order_id, line_no, product_id, quantity, unit_price)
WITH RECURSIVE n (i) AS (VALUES (1) UNION ALL SELECT i + 1 FROM n WHERE i < 4)
SELECT o.order_id, n.i, p.product_id, 1 + (o.order_id + n.i) % 4 * (p.product_id % 3) / 2, round(p.price * (1 - o.order_id % 5 * 0.02), 2)
FROM orders AS o
JOIN n ON n.i <= 1 + o.order_id % 4
JOIN products AS p ON p.product_id = 1 + (o.order_id * 17 + n.i * 41) % 113
ORDER BY o.order_id, n.i;

INSERT INTO payments (order_id, amount, paid_on, method)
SELECT t.order_id, t.total, CASE WHEN t.status <> 'open' THEN date(t.ordered_at, '+' || t.order_id % 6 || ' days') END,
       CASE t.order_id % 3 WHEN 0 THEN 'card' WHEN 1 THEN 'transfer' ELSE 'invoice' END
FROM order_totals AS t
WHERE t.order_id % 13 <> 5
ORDER BY t.order_id;

DROP TABLE words;

COMMIT;

ANALYZE;
