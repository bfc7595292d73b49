#!/usr/bin/env python3
"""Writes the sales transactions of samples/company.xml, qbsim's sample company.

The transactions are described below in a compact form; this script works out their amounts and
totals by QuickBooks' rules (the same rules qbsim applies to a Mod or Add), gives them IDs in
QuickBooks' style and writes them, in the qbXML reference's element order, after the marker
comment of the sample. Everything before the marker (host, company, lists) is kept as it is.

QuickBooks' rules used here:
  - a line's amount is quantity x rate (no quantity counts as 1), rounded half away from zero;
  - a subtotal item sums the lines above it back to the previous subtotal; a percentage line
    (RatePercent, negative for a discount) is that percentage of the line directly above it, and
    one directly below a subtotal belongs to that subtotal's block, not to the next one;
  - a group's TotalAmount is the sum of its lines;
  - sales tax is the transaction's tax item rate on the lines whose tax code is taxable, none
    when the customer's tax code is not taxable.

usage: gen_sample_transactions.py [COMPANY.xml]   (default: samples/company.xml of this repo)
"""
import datetime
import os
import sys
from decimal import Decimal, ROUND_HALF_UP
from xml.etree import ElementTree as ET
from xml.sax.saxutils import escape

HERE = os.path.dirname(os.path.abspath(__file__))
DEFAULT_COMPANY = os.path.join(os.path.dirname(HERE), 'samples', 'company.xml')
MARKER = '<!-- Sales transactions: written by tools/gen_sample_transactions.py; edit the script. -->'
ZONE = datetime.timezone(datetime.timedelta(hours=-5))
L = None  # the sample's lists (Lists), read by main

# Element order of each kind's Ret and line Ret (Intuit's qbxmlops70.xml); "*" is the lines.
HEADER = {
    'Invoice': 'TxnID TimeCreated TimeModified EditSequence TxnNumber CustomerRef ClassRef '
               'ARAccountRef TemplateRef TxnDate RefNumber BillAddress BillAddressBlock '
               'ShipAddress ShipAddressBlock IsPending IsFinanceCharge PONumber TermsRef DueDate '
               'SalesRepRef FOB ShipDate ShipMethodRef Subtotal ItemSalesTaxRef '
               'SalesTaxPercentage SalesTaxTotal AppliedAmount BalanceRemaining Memo IsPaid '
               'CustomerMsgRef IsToBePrinted IsToBeEmailed IsTaxIncluded CustomerSalesTaxCodeRef '
               'SuggestedDiscountAmount SuggestedDiscountDate Other LinkedTxn * DataExtRet',
    'Estimate': 'TxnID TimeCreated TimeModified EditSequence TxnNumber CustomerRef ClassRef '
                'TemplateRef TxnDate RefNumber BillAddress BillAddressBlock ShipAddress '
                'ShipAddressBlock IsActive PONumber TermsRef DueDate SalesRepRef FOB Subtotal '
                'ItemSalesTaxRef SalesTaxPercentage SalesTaxTotal TotalAmount Memo CustomerMsgRef '
                'IsToBeEmailed IsTaxIncluded CustomerSalesTaxCodeRef Other LinkedTxn * DataExtRet',
    'SalesOrder': 'TxnID TimeCreated TimeModified EditSequence TxnNumber CustomerRef ClassRef '
                  'TemplateRef TxnDate RefNumber BillAddress BillAddressBlock ShipAddress '
                  'ShipAddressBlock PONumber TermsRef DueDate SalesRepRef FOB ShipDate '
                  'ShipMethodRef Subtotal ItemSalesTaxRef SalesTaxPercentage SalesTaxTotal '
                  'TotalAmount IsManuallyClosed IsFullyInvoiced Memo CustomerMsgRef IsToBePrinted '
                  'IsToBeEmailed IsTaxIncluded CustomerSalesTaxCodeRef Other LinkedTxn * '
                  'DataExtRet',
    'SalesReceipt': 'TxnID TimeCreated TimeModified EditSequence TxnNumber CustomerRef ClassRef '
                    'TemplateRef TxnDate RefNumber BillAddress BillAddressBlock ShipAddress '
                    'ShipAddressBlock IsPending CheckNumber PaymentMethodRef DueDate SalesRepRef '
                    'ShipDate ShipMethodRef FOB Subtotal ItemSalesTaxRef SalesTaxPercentage '
                    'SalesTaxTotal TotalAmount Memo CustomerMsgRef IsToBePrinted IsToBeEmailed '
                    'IsTaxIncluded CustomerSalesTaxCodeRef DepositToAccountRef CreditCardTxnInfo '
                    'Other * DataExtRet',
}
LINE = 'TxnLineID ItemRef Desc Quantity Rate RatePercent ClassRef Amount ServiceDate ' \
       'SalesTaxCodeRef Invoiced IsManuallyClosed Other1 Other2 DataExtRet'
GROUP = 'TxnLineID ItemGroupRef Desc Quantity IsPrintItemsInGroup TotalAmount * DataExtRet'
NEW_TXN = {'Invoice': [('IsPending', 'false'), ('IsFinanceCharge', 'false'),
                       ('IsToBePrinted', 'false'), ('IsToBeEmailed', 'false')],
           'Estimate': [('IsActive', 'true'), ('IsToBeEmailed', 'false')],
           'SalesOrder': [('IsManuallyClosed', 'false'), ('IsFullyInvoiced', 'false'),
                          ('IsToBePrinted', 'false'), ('IsToBeEmailed', 'false')],
           'SalesReceipt': [('IsPending', 'false'), ('IsToBePrinted', 'false'),
                            ('IsToBeEmailed', 'false')]}

class Lists:
    """The sample's lists the transactions use, read from the part of the file before MARKER."""

    def __init__(self, root):
        def full(e):
            return e.findtext('FullName') or e.findtext('Name')

        self.ids, self.items, self.groups, self.taxes = {}, {}, {}, {}
        self.templates, self.codes, self.customers = {}, {}, {}
        for e in root:
            name = full(e)
            if e.tag.startswith('Item') or e.tag in ('ShipMethodRet', 'StandardTermsRet'):
                self.ids[name] = e.findtext('ListID')
            if e.tag == 'SalesTaxCodeRet':
                self.codes[name] = (e.findtext('ListID'), e.findtext('IsTaxable') == 'true')
            elif e.tag == 'CustomerRet':
                self.customers[name] = (e.findtext('ListID'), e.findtext('SalesTaxCodeRef/FullName'))
            elif e.tag == 'TemplateRet':
                self.templates.setdefault(e.findtext('TemplateType'), (e.findtext('ListID'), name))
            elif e.tag == 'ItemGroupRet':
                self.groups[name] = (e.findtext('ItemDesc'), e.findtext('IsPrintItemsInGroup'),
                                     [(l.findtext('ItemRef/FullName'), Decimal(l.findtext('Quantity')))
                                      for l in e.findall('ItemGroupLine')])
            elif e.tag == 'ItemSalesTaxRet':
                self.taxes[name] = Decimal(e.findtext('TaxRate'))
            elif e.tag == 'ItemSalesTaxGroupRet':
                self.taxes[name] = sum(Decimal(self.taxes[r.findtext('FullName')])
                                       for r in e.findall('ItemSalesTaxRef'))
            elif e.tag.startswith('Item'):
                desc = next((e.findtext(p) for p in ('SalesOrPurchase/Desc', 'SalesAndPurchase/SalesDesc',
                                                     'SalesDesc', 'ItemDesc') if e.find(p) is not None), None)
                price = next((e.findtext(p) for p in ('SalesOrPurchase/Price', 'SalesAndPurchase/SalesPrice',
                                                      'SalesPrice') if e.find(p) is not None), None)
                kind = 'item'
                if e.tag == 'ItemSubtotalRet':
                    kind = 'subtotal'
                elif e.find('DiscountRatePercent') is not None:
                    kind, price = 'percent', '%.2f' % -Decimal(e.findtext('DiscountRatePercent'))
                elif e.find('DiscountRate') is not None:
                    price = '%.2f' % -Decimal(e.findtext('DiscountRate'))
                self.items[name] = (kind, desc, price, e.findtext('SalesTaxCodeRef/FullName'))


def cents(value):
    return Decimal(value).quantize(Decimal('0.01'), rounding=ROUND_HALF_UP)


# ---- The transactions -------------------------------------------------------------------
#
# A line is a dict: item, qty, rate, desc, other1, other2, ext {name: value}, lineid (to place a
# TxnLineID out of order); {} is a blank line; {'desc': ...} alone a description-only line;
# {'group': name, 'qty': n} a line group with its item group's lines.

LOREM = ['Bench stock', 'Line-side bin', 'Replacement', 'Customer request', 'Spare',
         'Warranty swap', 'Second shift', 'Cell 4', 'Rework', 'Kanban refill', 'Field kit',
         'Back order']


def two_hundred_lines():
    """The 200 lines of the long invoice: a fixed cycle of parts and services."""
    names = ['Widget', 'Widget:Blue', 'Widget:Red', 'Bracket 2in', 'Bolt M6', 'Gasket Kit',
             'Cabinet Pull', 'Impeller', 'Packaging', 'Shipping Box', 'Labor', 'Consulting',
             'Installation', 'Pump Assembly', 'Freight']
    seed, lines = 12345, []
    for i in range(200):
        seed = (seed * 1103515245 + 12345) % 2 ** 31
        name = names[seed % len(names)]
        line = {'item': name, 'qty': str(1 + (seed >> 8) % 24),
                'desc': '%s - %s %03d' % (L.items[name][1], LOREM[(seed >> 4) % len(LOREM)], i + 1)}
        if i % 7 == 3:
            line['other1'] = 'Bin %d' % (seed % 90 + 10)
        if i % 11 == 5:
            line['other2'] = 'Lot %d' % (seed % 900 + 100)
        lines.append(line)
    return lines


TERMS_TEXT = ('Terms: Open account; net 30 days.\n'
              'Availability: From stock, subject to prior sales.\n'
              'Delivery: FOB our dock, via UPS ground unless otherwise requested.\n'
              'Validity of offer: 60 days.')

def transactions():
    return [
    {'kind': 'Invoice', 'ref': '3001', 'customer': 'Baker Hardware:Store 12', 'date': '2024-03-04',
     'modified': '2024-03-05T10:12:00', 'tax': 'Combined Tax', 'ship': 'UPS Ground',
     'terms': 'Net 30', 'po': 'PO-7781', 'memo': 'Spring restock',
     'applied': '-50.00', 'linked': ('2A0-1709740000', 'ReceivePayment', '2024-03-06', '551'),
     'lines': [
         {'item': 'Widget', 'qty': '10'},
         {'item': 'Bracket 2in', 'qty': '20'},
         {'item': 'Labor', 'qty': '2', 'desc': 'Assembly on site'},
         {'item': 'Freight', 'qty': '1'},
     ]},
    {'kind': 'Invoice', 'ref': '3002', 'customer': 'Cole Dental Lab', 'date': '2024-03-11',
     'modified': '2024-03-12T16:45:00', 'tax': 'Combined Tax', 'ship': 'Our Truck',
     'terms': 'Net 30', 'lines': two_hundred_lines()},
    {'kind': 'Invoice', 'ref': '3003', 'customer': 'Grant Builders:Lakeview Remodel',
     'date': '2024-03-18', 'modified': '2024-04-02T08:05:00', 'tax': 'Combined Tax',
     'memo': 'Kitchen phase', 'lines': [
         {'item': 'Design Review', 'qty': '1'},
         {},
         {'desc': 'Site visit notes: cabinets measured, north wall out of square.'},
         {'group': 'Starter Kit', 'qty': '2'},
         {'group': 'Service Bundle', 'qty': '1'},
         {'desc': 'Crew: two installers\nSchedule: mornings only'},
         {'item': 'Subtotal'},
         {'item': '10% Discount'},
         {},
         {'item': 'Cabinet Pull', 'qty': '24', 'other1': 'Brushed', 'other2': 'Set B'},
     ]},
    {'kind': 'Invoice', 'ref': '3004', 'customer': 'Grant Builders', 'date': '2024-03-25',
     'modified': '2024-03-25T11:30:00', 'tax': 'Combined Tax', 'lines': [
         {'item': 'Consulting', 'qty': '3'},
         {'item': 'Widget:Red', 'qty': '6'},
         {'item': 'Rush Fee', 'qty': '1'},
     ]},
    {'kind': 'Invoice', 'ref': '3004', 'customer': 'Grant Builders', 'date': '2024-04-08',
     'modified': '2024-04-08T14:00:00', 'tax': 'Combined Tax', 'memo': 'Same number as March',
     'lines': [
         {'item': 'Gasket Kit', 'qty': '4'},
         {'item': 'Labor:Overtime', 'qty': '1.5'},
     ]},
    {'kind': 'Invoice', 'ref': '3005', 'customer': 'Ito Machining', 'date': '2024-04-15',
     'modified': '2024-04-20T09:10:00', 'tax': 'Combined Tax', 'paid': True,
     'linked': ('2B4-1713618600', 'ReceivePayment', '2024-04-20', '618'),
     'lines': [
         {'item': 'Impeller', 'qty': '5'},
         {'item': 'Pump Assembly:Deluxe', 'qty': '1'},
     ]},
    {'kind': 'Estimate', 'ref': 'E-101', 'customer': 'Eastside Clinic', 'date': '2024-03-07',
     'modified': '2024-03-08T13:20:00', 'tax': 'Combined Tax', 'po': 'Pending',
     'ext': {'PO Ref': 'EC-2024-03'}, 'lines': [
         {'item': 'Widget:Blue', 'qty': '2', 'rate': '891', 'ext': {'Color': 'Blue'}},
         {'item': 'Amount Subtotal', 'lineid': 5},
         {'item': '5% Discount', 'lineid': 3},
         {'lineid': 4},
         {'item': 'Pump Assembly', 'qty': '2', 'rate': '589.00', 'lineid': 1},
         {'item': 'Gasket Kit', 'qty': '2', 'rate': '95.00', 'lineid': 2},
         {'item': 'Amount Subtotal'},
         {'item': '10% Discount'},
         {},
         {'desc': TERMS_TEXT},
     ]},
    {'kind': 'Estimate', 'ref': 'E-102', 'customer': 'Keller Farms', 'date': '2024-03-14',
     'modified': '2024-03-14T15:00:00', 'tax': 'State Tax', 'lines': [
         {'item': 'Widget:Red', 'qty': '12', 'ext': {'Color': 'Red', 'Lot': 'L-2201'}},
         {'item': 'Widget:Blue', 'qty': '8', 'ext': {'Color': 'Blue'}},
         {'item': 'Bolt M6', 'qty': '100', 'ext': {'Lot': 'B-77'}},
         {'item': 'Packaging', 'qty': '3'},
     ]},
    {'kind': 'Estimate', 'ref': 'E-103', 'customer': 'Hollis Caf\u00e9', 'date': '2024-04-03',
     'modified': '2024-04-03T10:00:00', 'tax': 'Combined Tax', 'lines': [
         {'item': 'Installation', 'qty': '4'},
         {'item': 'Cabinet Pull', 'qty': '10'},
     ]},
    {'kind': 'SalesOrder', 'ref': 'SO-501', 'customer': 'Baker Hardware', 'date': '2024-03-20',
     'modified': '2024-03-21T09:00:00', 'tax': 'Combined Tax', 'ship': 'UPS Ground', 'lines': [
         {'group': 'Starter Kit', 'qty': '3'},
         {'item': 'Shipping Box', 'qty': '3'},
         {'item': 'Freight', 'qty': '1'},
     ]},
    {'kind': 'SalesOrder', 'ref': 'SO-502', 'customer': 'Delgado, Maria', 'date': '2024-04-01',
     'modified': '2024-04-01T17:25:00', 'tax': 'State Tax', 'lines': [
         {'item': 'Widget', 'qty': '4', 'ext': {'Color': 'Green'}},
         {'item': 'Bracket 2in', 'qty': '8'},
         {'desc': 'Deliver to side door'},
     ]},
    {'kind': 'SalesOrder', 'ref': 'SO-503', 'customer': 'Grant Builders:Lakeview Remodel:Phase 2',
     'date': '2024-04-10', 'modified': '2024-04-11T08:40:00', 'tax': 'Combined Tax', 'lines': [
         {'item': 'Pump Assembly', 'qty': '2'},
         {'item': 'Installation', 'qty': '2'},
     ]},
    {'kind': 'SalesReceipt', 'ref': 'R-9001', 'customer': 'Fenwick & Sons', 'date': '2024-03-28',
     'modified': '2024-03-28T12:00:00', 'tax': 'Combined Tax', 'check': '4410', 'lines': [
         {'item': 'Gasket Kit', 'qty': '2'},
         {'item': 'Widget', 'qty': '5'},
         {'item': 'Labor', 'qty': '1'},
     ]},
    {'kind': 'SalesReceipt', 'ref': 'R-9002', 'customer': 'Hollis Caf\u00e9', 'date': '2024-04-12',
     'modified': '2024-04-12T16:10:00', 'tax': 'Combined Tax', 'lines': [
         {'item': 'Cabinet Pull', 'qty': '30'},
         {'item': '5% Discount'},
         {'item': 'Shipping Box', 'qty': '2'},
     ]},
    {'kind': 'SalesReceipt', 'ref': 'R-9003', 'customer': 'Keller Farms', 'date': '2024-04-24',
     'modified': '2024-04-26T11:45:00', 'tax': 'State Tax', 'lines': [
         {'item': 'Widget:Blue', 'qty': '6'},
         {'item': 'Loyalty Credit'},
     ]},
    ]


# ---- Writing ------------------------------------------------------------------------------

class Writer:
    def __init__(self):
        self.out = []

    def element(self, depth, name, value):
        self.out.append('%s<%s>%s</%s>' % ('  ' * depth, name, escape(value), name))

    def ref(self, depth, name, list_id, full_name):
        self.out.append('%s<%s>' % ('  ' * depth, name))
        self.element(depth + 1, 'ListID', list_id)
        self.element(depth + 1, 'FullName', full_name)
        self.out.append('%s</%s>' % ('  ' * depth, name))

    def open(self, depth, name):
        self.out.append('%s<%s>' % ('  ' * depth, name))

    def close(self, depth, name):
        self.out.append('%s</%s>' % ('  ' * depth, name))


def data_ext(w, depth, name, value):
    w.open(depth, 'DataExtRet')
    w.element(depth + 1, 'OwnerID', '0')
    w.element(depth + 1, 'DataExtName', name)
    w.element(depth + 1, 'DataExtType', 'STR255TYPE')
    w.element(depth + 1, 'DataExtValue', value)
    w.close(depth, 'DataExtRet')


def ordered(fields, order):
    """fields: [(name, writer)]; returns them in the reference's order."""
    rank = {n: i for i, n in enumerate(order.split())}
    return sorted(fields, key=lambda f: rank[f[0]])


class Txn:
    """One transaction: its lines worked out and written."""

    def __init__(self, spec, counter, txn_number):
        self.spec = spec
        self.kind = spec['kind']
        modified = datetime.datetime.fromisoformat(spec['modified']).replace(tzinfo=ZONE)
        created = datetime.datetime.fromisoformat(spec['date'] + 'T08:00:00').replace(tzinfo=ZONE)
        self.suffix = '%d' % created.timestamp()
        self.created = created.isoformat()
        self.modified = modified.isoformat()
        self.sequence = '%d' % modified.timestamp()
        self.txn_id = '%X-%s' % (counter, self.suffix)
        self.counter = counter + 1
        self.txn_number = txn_number
        self.taxable = Decimal(0)

    def line_id(self, spec):
        if 'lineid' in spec:  # placed out of order, as QuickBooks' own IDs often are
            return '%X-%s' % (self.base + 0x40 + spec['lineid'], self.suffix)
        self.counter += 1
        return '%X-%s' % (self.counter - 1, self.suffix)

    def compute(self, lines):
        """Amounts of one level of lines; returns (rows, total)."""
        rows, total, block, above, after_subtotal = [], Decimal(0), Decimal(0), Decimal(0), False
        for spec in lines:
            row = dict(spec)
            subtotal = percent = False
            if 'group' in spec:
                desc, printed, parts = L.groups[spec['group']]
                qty = Decimal(spec.get('qty', '1'))
                members, amount = self.compute([{'item': n, 'qty': str(q * qty)} for n, q in parts])
                row.update(members=members, amount=amount, desc=desc, printed=printed)
            elif 'item' in spec:
                kind, desc, price, code = L.items[spec['item']]
                if desc:
                    row.setdefault('desc', desc)
                if code:
                    row['code'] = code
                if kind == 'subtotal':
                    subtotal, amount = True, block
                elif kind == 'percent':
                    percent = True
                    row['pct'] = price
                    amount = cents(above * Decimal(price) / 100)
                else:
                    row['rate'] = spec.get('rate', price)
                    amount = cents(Decimal(spec.get('qty', '1')) * Decimal(row['rate'] or 0))
                if self.kind == 'SalesOrder':
                    row.update(invoiced='0', closed='false')
            else:
                amount = Decimal(0)  # blank and description-only lines
            row['amount'] = amount
            if 'item' in spec or 'group' in spec:
                if subtotal:
                    block = Decimal(0)
                else:
                    total += amount
                    if not (percent and after_subtotal):
                        block += amount
            if row.get('code') and L.codes[row['code']][1]:
                self.taxable += amount
            after_subtotal, above = subtotal, amount
            rows.append(row)
        return rows, total

    def write_line(self, w, row, depth, element):
        w.open(depth, element)
        w.element(depth + 1, 'TxnLineID', row['id'])
        if 'item' in row:
            list_id = L.ids[row['item']]
            fields = [('ItemRef', lambda d: w.ref(d, 'ItemRef', list_id, row['item'])),
                      ('Desc', lambda d: w.element(d, 'Desc', row['desc'])),
                      ('Amount', lambda d: w.element(d, 'Amount', '%.2f' % row['amount']))]
            if 'qty' in row:
                fields.append(('Quantity', lambda d: w.element(d, 'Quantity', row['qty'])))
            if row.get('rate') is not None:
                fields.append(('Rate', lambda d: w.element(d, 'Rate', str(row['rate']))))
            if 'pct' in row:
                fields.append(('RatePercent', lambda d: w.element(d, 'RatePercent', row['pct'])))
            if 'code' in row:
                fields.append(('SalesTaxCodeRef', lambda d: w.ref(
                    d, 'SalesTaxCodeRef', L.codes[row['code']][0], row['code'])))
            if 'invoiced' in row:
                fields.append(('Invoiced', lambda d: w.element(d, 'Invoiced', row['invoiced'])))
                fields.append(('IsManuallyClosed',
                               lambda d: w.element(d, 'IsManuallyClosed', row['closed'])))
            for name, key in (('Other1', 'other1'), ('Other2', 'other2')):
                if key in row:
                    fields.append((name, lambda d, n=name, k=key: w.element(d, n, row[k])))
            for _, write in ordered(fields, LINE):
                write(depth + 1)
        elif 'desc' in row:
            w.element(depth + 1, 'Desc', row['desc'])
        for name, value in row.get('ext', {}).items():
            data_ext(w, depth + 1, name, value)
        w.close(depth, element)

    def number(self, rows):
        for row in rows:
            row['id'] = self.line_id(row)
            self.number(row.get('members', []))

    def write(self, w):
        s, kind = self.spec, self.kind
        self.base = self.counter
        self.counter += 0x50 if any('lineid' in l for l in s['lines']) else 0
        rows, subtotal = self.compute(s['lines'])
        self.number(rows)
        customer_id, customer_code = L.customers[s['customer']]
        tax_id, percent = L.ids[s['tax']], L.taxes[s['tax']]
        tax = cents(self.taxable * percent / 100) if L.codes[customer_code][1] else Decimal(0)
        total = subtotal + tax
        applied = Decimal(s.get('applied', '-%.2f' % total if s.get('paid') else '0.00'))
        values = {
            'TxnID': self.txn_id, 'TimeCreated': self.created, 'TimeModified': self.modified,
            'EditSequence': self.sequence, 'TxnNumber': str(self.txn_number),
            'TxnDate': s['date'], 'RefNumber': s['ref'], 'PONumber': s.get('po'),
            'Memo': s.get('memo'), 'CheckNumber': s.get('check'),
            'Subtotal': '%.2f' % subtotal, 'SalesTaxPercentage': '%.2f' % percent,
            'SalesTaxTotal': '%.2f' % tax,
        }
        for name, value in NEW_TXN[kind]:
            values[name] = value
        if kind == 'Invoice':
            values.update(AppliedAmount='%.2f' % applied,
                          BalanceRemaining='%.2f' % (total + applied),
                          IsPaid='true' if total + applied <= 0 else 'false')
        else:
            values['TotalAmount'] = '%.2f' % total
        refs = {'CustomerRef': (customer_id, s['customer']),
                'TemplateRef': L.templates[kind],
                'ItemSalesTaxRef': (tax_id, s['tax']),
                'CustomerSalesTaxCodeRef': (L.codes[customer_code][0], customer_code)}
        if 'ship' in s and 'ShipMethodRef' in HEADER[kind]:
            refs['ShipMethodRef'] = (L.ids[s['ship']], s['ship'])
        if 'terms' in s and 'TermsRef' in HEADER[kind]:
            refs['TermsRef'] = (L.ids[s['terms']], s['terms'])
        fields = [(n, lambda d, n=n, v=v: w.element(d, n, v))
                  for n, v in values.items() if v is not None]
        fields += [(n, lambda d, n=n, r=r: w.ref(d, n, r[0], r[1])) for n, r in refs.items()]
        if 'linked' in s and s.get('applied', s.get('paid')):
            fields.append(('LinkedTxn', lambda d: self.write_linked(w, d, -applied)))
        fields.append(('*', lambda d: [self.write_row(w, r, d) for r in rows]))
        fields.append(('DataExtRet', lambda d: [data_ext(w, d, n, v)
                                                for n, v in s.get('ext', {}).items()]))
        w.open(1, kind + 'Ret')
        for _, write in ordered(fields, HEADER[kind]):
            write(2)
        w.close(1, kind + 'Ret')

    def write_linked(self, w, depth, amount):
        txn_id, txn_type, date, ref = self.spec['linked']
        w.open(depth, 'LinkedTxn')
        for name, value in (('TxnID', txn_id), ('TxnType', txn_type), ('TxnDate', date),
                            ('RefNumber', ref), ('LinkType', 'AMTTYPE'),
                            ('Amount', '%.2f' % -amount)):
            w.element(depth + 1, name, value)
        w.close(depth, 'LinkedTxn')

    def write_row(self, w, row, depth):
        if 'group' not in row:
            self.write_line(w, row, depth, self.kind + 'LineRet')
            return
        element = self.kind + 'LineGroupRet'
        w.open(depth, element)
        w.element(depth + 1, 'TxnLineID', row['id'])
        w.ref(depth + 1, 'ItemGroupRef', L.ids[row['group']], row['group'])
        w.element(depth + 1, 'Desc', row['desc'])
        w.element(depth + 1, 'Quantity', row.get('qty', '1'))
        w.element(depth + 1, 'IsPrintItemsInGroup', row['printed'])
        w.element(depth + 1, 'TotalAmount', '%.2f' % row['amount'])
        for member in row['members']:
            self.write_line(w, member, depth + 1, self.kind + 'LineRet')
        w.close(depth, element)


def main():
    path = sys.argv[1] if len(sys.argv) > 1 else DEFAULT_COMPANY
    with open(path, encoding='utf-8') as f:
        text = f.read()
    head = text[:text.index(MARKER) + len(MARKER)] if MARKER in text else \
        text[:text.rindex('</QBSimCompany>')] + '  ' + MARKER
    global L
    L = Lists(ET.fromstring(head.encode('utf-8') + b'\n</QBSimCompany>'))
    w = Writer()
    counter = 0x1F0
    for number, spec in enumerate(transactions(), start=101):
        txn = Txn(spec, counter, number)
        txn.write(w)
        counter = (txn.counter + 0x10) & ~0xF
    with open(path, 'w', encoding='utf-8') as f:
        f.write(head + '\n' + '\n'.join(w.out) + '\n</QBSimCompany>\n')


if __name__ == '__main__':
    main()
